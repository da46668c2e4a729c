// The NTP unicast server cache, kept sorted by server name.
#pragma once

#include <cstdint>

#include "state/comm_lock.h"
#include "state/dlist.h"

extern "C" {

typedef struct QavNtpUCastTable {
    QavCommLock lock;
    uint32_t reserved;
    qav::DLink entries; // ascending byte-wise name order
} QavNtpUCastTable;

extern QavNtpUCastTable g_stNTPUCastTable;
}
