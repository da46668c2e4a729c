// Port-ID assignment: per-OS-node cursors handing out ports 41004 to 41128 in rotation.
#pragma once

#include <cstdint>

#include "state/dlist.h"

extern "C" {

typedef struct OsNodeIndex {
    qav::DLink link;
    uint32_t osNodeId;
    uint32_t curPos; // next position to hand out, 4 to 128
} OsNodeIndex;

#define QAV_PORT_BUCKETS 4096u

typedef struct QavAssignPortTable {
    qav::DLink buckets[QAV_PORT_BUCKETS];
    uint32_t mutex;
} QavAssignPortTable;

extern QavAssignPortTable *g_pstAssignPortIDList;

uint32_t QAV_LuaAssignPortID_Init(void);
uint32_t QAV_LuaAssignPortID_Fini(void);
}
