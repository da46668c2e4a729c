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

typedef struct QavTpmReportData {
    int32_t key1;
    int32_t key2;
    char text3[128];
    char text4[100];
    char text5[100];
    char text6[100];
    int32_t number7;
} QavTpmReportData;

typedef struct QavTpmReportEntry {
    uint32_t availFlag; // mark of the set's sweep
    qav::DLink link;
    QavTpmReportData data;
} QavTpmReportEntry;

typedef struct QavTpmStatusData {
    int32_t key;
    char text2[128];
    char text3[50];
    char text4[50];
    int32_t number5;
    int32_t status; // 4: a completed entry, which ages after 60 seconds
} QavTpmStatusData;

typedef struct QavTpmStatusEntry {
    uint32_t availFlag;
    uint32_t statusTime; // monotonic seconds at which status 4 was last stored
    qav::DLink link;
    QavTpmStatusData data;
} QavTpmStatusEntry;

extern QavTpmQueryTable g_stTpmReportTable;
extern QavTpmQueryTable g_stTpmStatusTable;

// Creates the table's lock and empties it; 0 or the failing platform result.
uint32_t QAV_TPM_InitTpmQueryTable(QavTpmQueryTable *table, const char *semaName);
// 1 when the table is stale: forced, or more than refreshInterval seconds since the last set.
uint32_t QAV_TPM_NeedRefreshTable(const QavTpmQueryTable *table);
void QAV_TPM_RecordTableNewRefreshTime(QavTpmQueryTable *table);
int32_t QAV_TPM_CommpareReportEntry(const QavTpmReportData *a, const QavTpmReportData *b);
int32_t QAV_TPM_CommpareStatusEntry(const QavTpmStatusData *a, const QavTpmStatusData *b);
}
