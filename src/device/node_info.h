// Node facts other areas use.
#pragma once

#include <cstdint>

extern "C" {
// The running VNF's product type ("Product/VNF/ProductType" of the running version file) into
// out[32]; 0 on success, 1 otherwise.
uint32_t QAV_GetProductType(char *out);
// Nonzero when "/boot/disk_cfg.ini" cannot be read.
uint32_t QAV_CheckDiskCfgExistence(void);
}
