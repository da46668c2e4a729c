// Version configuration (vercfg.xml) readers and package checks shared by the version, ISSU and
// risk-check functions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "binding/result_codes.h"
#include "rpm_vercfg.h"

namespace qav::vercfg {
// The version configuration functions report in the package area's result codes.
using namespace qav::pkg;

// File node type codes.
enum TypeCode : uint32_t {
    kBaseSoftwareCode = 0,
    kMimCode = 1,
    kColdPatchCode = 2,
    kHotPatchCode = 20,
    kSkippedNodeType = 61,
};

inline constexpr const char *kZakcfgFile = "../data/zakcfg.ini";
inline constexpr const char *kStartupSection = "[system software information]";
inline constexpr const char *kStartLoadKey = "start load system software ";
inline constexpr const char *kCurrentKey = "current startup system software ";
inline constexpr const char *kLastKey = "last startup system software ";
inline constexpr const char *kNextKey = "next startup system software ";
// Startup values always begin with the 7-character device prefix "flash0:", whatever the storages.
inline constexpr size_t kDevicePrefixLength = 7;

// The type code of a version type text; false for any other text (compared whole, case-sensitive).
bool TypeCodeOfVersionType(const char *versionType, uint32_t *typeCode);

// A zeroed array of file node records from the platform allocator, freed on scope exit.
class NodeArray {
  public:
    explicit NodeArray(uint32_t count);
    ~NodeArray();
    NodeArray(const NodeArray &) = delete;
    NodeArray &operator=(const NodeArray &) = delete;
    RPM_FILE_NODE_INFO *get() const { return nodes_; }
    uint32_t count() const { return count_; }
    RPM_FILE_NODE_INFO &operator[](uint32_t i) const { return nodes_[i]; }

  private:
    RPM_FILE_NODE_INFO *nodes_ = nullptr;
    uint32_t count_ = 0;
};

// Writes to the patch log: PAT_LogToFile(0, level, 1, ...).
void PatLog(uint32_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));

} // namespace qav::vercfg

extern "C" {
int32_t QAV_GetZakcfgVersionInfo(const char *key, char *out, uint32_t outSize);
uint32_t QAV_GetPatNameInfo(const char *xmlPath, char *outName, char *outSha, uint32_t typeCode);
uint32_t QAV_GetRiskCheckPkgPath(const char *xmlPath, char *out, uint32_t outSize, const char *destObjType);
uint32_t QAV_GetFileNameByeVersionType(const char *xmlPath, char *outName, const char *versionType);
char *QAV_GetDirName(char *name);
uint32_t QAV_SplitPathFileName(const char *path, char *dir, char *name, uint32_t nameSize);
uint32_t QAV_UPG_CheckFiles(const char *xmlPath);
uint32_t SU_TypeCodeCheckInXml(const char *xmlPath);
uint32_t QAV_CheckPatPkgSha(const char *xmlPath, const char *fileName, const char *expected);
}
