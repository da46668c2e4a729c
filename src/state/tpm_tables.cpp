#include "state/tpm_tables.h"

#include "binding/script_frame.h"

extern "C" {

QavTpmQueryTable g_stTpmReportTable;
QavTpmQueryTable g_stTpmStatusTable;

uint32_t QAV_TPM_InitTpmQueryTable(QavTpmQueryTable *table, const char *semaName) {
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogProgress, "TPM Init Tpm Query Table entry");
    if (table->lock.mutex == 0) NUK_MutexInit(&table->lock.mutex, 0);
    uint32_t rc = NUK_SemaCreate(semaName, 1, 0, &table->lock.semaId);
    if (rc != 0) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "TPM Init Tpm Query Table failed, ret(%u)", rc);
        NUK_MutexDestroy(table->lock.mutex);
        table->lock.mutex = 0;
        return rc;
    }
    table->lock.count = 0;
    table->refreshTime = 0;
    table->refreshInterval = 5;
    table->forceRefresh = 1;
    qav::DListInit(&table->entries);
    return 0;
}

} // extern "C"
