// The two TPM query tables: cached report and status entries kept in key order.
#pragma once

#include <cstdint>

#include "state/comm_lock.h"
#include "state/dlist.h"

extern "C" {

typedef struct QavTpmQueryTable {
    uint32_t forceRefresh;    // 1 = stale regardless of time
    uint32_t refreshTime;     // monotonic seconds of the last set
    uint32_t refreshInterval; // seconds
    QavCommLock lock;
    uint32_t reserved;
    qav::DLink entries; // ascending key order
} QavTpmQueryTable;

extern QavTpmQueryTable g_stTpmReportTable;
extern QavTpmQueryTable g_stTpmStatusTable;

// Creates the table's lock and empties it; 0 or the failing platform result.
uint32_t QAV_TPM_InitTpmQueryTable(QavTpmQueryTable *table, const char *semaName);
}
