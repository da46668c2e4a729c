// Patch packages: the 6480-byte little-endian header, hot and cold descriptor entries, patch
// file names, custom patch versions, MD5 digests and the CRL root path service.
#include <openssl/evp.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "host.h"
#include "pat_pkg.h"
#include "pkg_internal.h"
#include "securec.h"

namespace {

uint32_t le32(const uint8_t *bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// Reads and checks a header; PAT_ERR_LENGTH leaves a sound header in `buffer`.
uint32_t read_header(const char *path, uint8_t *buffer) {
    if (path == nullptr || buffer == nullptr) return PAT_ERR_PARAM;
    FILE *file = std::fopen(path, "rb");
    if (file == nullptr) return PAT_ERR_OPEN;
    size_t got = std::fread(buffer, 1, PAT_PKG_HEAD_LEN, file);
    std::fseek(file, 0, SEEK_END);
    long size = std::ftell(file);
    std::fclose(file);
    if (got != PAT_PKG_HEAD_LEN) return PAT_ERR_SHORT;
    if (buffer[0] == '\0' || std::memchr(buffer, '\0', PAT_PKG_NAME_LEN) == nullptr ||
        std::memchr(buffer + PAT_PKG_PATCHVER_OFFSET, '\0', PAT_PKG_PATCHVER_LEN) == nullptr ||
        le32(buffer + PAT_PKG_NUM_OFFSET) > PAT_PKG_DESC_NUM)
        return PAT_ERR_HEADER;
    if (static_cast<long>(le32(buffer + PAT_PKG_FILELEN_OFFSET)) != size) return PAT_ERR_LENGTH;
    return PAT_OK;
}

const uint8_t *entry(const uint8_t *header, uint32_t index) {
    return header + PAT_PKG_DESC_OFFSET + index * PAT_PKG_DESC_LEN;
}

std::string subfile_version(const uint8_t *desc) {
    return std::string(reinterpret_cast<const char *>(desc),
                       strnlen(reinterpret_cast<const char *>(desc), 32));
}

// Digest of a byte range as lower-case hexadecimal.
uint32_t md5_range(const char *path, uint64_t offset, uint64_t length, char *digest, uint32_t size) {
    if (path == nullptr || digest == nullptr || size < 33) return 1;
    struct stat st {};
    if (stat(path, &st) != 0 || !S_ISREG(st.st_mode)) return 1;
    uint64_t fileSize = static_cast<uint64_t>(st.st_size);
    if (offset > fileSize || (length != 0 && length > fileSize - offset)) return 2;
    if (length == 0) length = fileSize - offset;
    FILE *file = std::fopen(path, "rb");
    if (file == nullptr) return 1;
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    bool ok = ctx != nullptr && EVP_DigestInit_ex(ctx, EVP_md5(), nullptr) == 1 &&
              fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
    std::vector<unsigned char> chunk(64 * 1024);
    while (ok && length > 0) {
        size_t want = length < chunk.size() ? static_cast<size_t>(length) : chunk.size();
        size_t got = std::fread(chunk.data(), 1, want, file);
        if (got == 0) ok = false;
        ok = ok && EVP_DigestUpdate(ctx, chunk.data(), got) == 1;
        length -= got;
    }
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int mdLen = 0;
    ok = ok && EVP_DigestFinal_ex(ctx, md, &mdLen) == 1;
    EVP_MD_CTX_free(ctx);
    std::fclose(file);
    if (!ok) return 1;
    for (unsigned int i = 0; i < mdLen; i++)
        std::snprintf(digest + 2 * i, 3, "%02x", md[i]);
    return 0;
}

bool ends_with_pat(const std::string &name) {
    if (name.size() < 4) return false;
    std::string ext = name.substr(name.size() - 4);
    for (char &c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".pat";
}

} // namespace

extern "C" {

uint32_t PAT_GetPatPkgHeaderInfo(const char *path, uint8_t *buffer) {
    int64_t result = PAT_ERR_OPEN;
    if (zakhost::injected("PAT_GetPatPkgHeaderInfo", &result)) return static_cast<uint32_t>(result);
    return read_header(path, buffer);
}

uint32_t PAT_GetPatPkgHeadCmsInfo(const uint8_t *buffer, uint32_t *cmsInfo) {
    int64_t result = PAT_ERR_PARAM;
    if (zakhost::injected("PAT_GetPatPkgHeadCmsInfo", &result)) return static_cast<uint32_t>(result);
    if (buffer == nullptr || cmsInfo == nullptr) return PAT_ERR_PARAM;
    *cmsInfo = le32(buffer + PAT_PKG_CMS_OFFSET);
    return PAT_OK;
}

uint32_t PAT_GetPatPkgBoardType(const char *path) {
    int64_t result = 0xFFFFFFFF;
    if (zakhost::injected("PAT_GetPatPkgBoardType", &result)) return static_cast<uint32_t>(result);
    std::vector<uint8_t> header(PAT_PKG_HEAD_LEN);
    uint32_t rc = read_header(path, header.data());
    if (rc != PAT_OK && rc != PAT_ERR_LENGTH) return 0xFFFFFFFF;
    if (le32(header.data() + PAT_PKG_NUM_OFFSET) == 0) return 0;
    return le32(entry(header.data(), 0) + PAT_DESC_BOARD_OFFSET);
}

uint32_t PAT_IsPatchFile(const char *path, uint32_t *isPackage) {
    if (zakhost::injected("PAT_IsPatchFile")) return 0;
    if (path == nullptr || isPackage == nullptr || !ends_with_pat(path)) return 0;
    struct stat st {};
    if (stat(path, &st) != 0 || !S_ISREG(st.st_mode)) return 0;
    std::vector<uint8_t> header(PAT_PKG_HEAD_LEN);
    uint32_t rc = read_header(path, header.data());
    *isPackage = rc == PAT_OK || rc == PAT_ERR_LENGTH ? 1 : 0;
    return 1;
}

uint32_t PAT_CheckInrPkg(const char *first, const char *second, uint32_t *firstNum, uint32_t *secondNum,
                         uint32_t *sameBase, uint32_t *contains) {
    int64_t result = PAT_ERR_PARAM;
    if (zakhost::injected("PAT_CheckInrPkg", &result)) return static_cast<uint32_t>(result);
    if (firstNum == nullptr || secondNum == nullptr || sameBase == nullptr || contains == nullptr)
        return PAT_ERR_PARAM;
    std::vector<uint8_t> a(PAT_PKG_HEAD_LEN), b(PAT_PKG_HEAD_LEN);
    uint32_t rc = read_header(first, a.data());
    if (rc != PAT_OK) return rc;
    rc = read_header(second, b.data());
    if (rc != PAT_OK) return rc;
    *firstNum = le32(a.data() + PAT_PKG_NUM_OFFSET);
    *secondNum = le32(b.data() + PAT_PKG_NUM_OFFSET);
    *sameBase = std::strncmp(reinterpret_cast<char *>(a.data()), reinterpret_cast<char *>(b.data()),
                             PAT_PKG_NAME_LEN) == 0
                    ? 1
                    : 0;
    *contains = 1;
    for (uint32_t i = 0; i < PAT_PKG_DESC_NUM && *contains == 1; i++) {
        const uint8_t *wanted = entry(b.data(), i);
        if (le32(wanted + PAT_DESC_TYPE_OFFSET) != PAT_TYPE_HOT) continue;
        bool found = false;
        for (uint32_t j = 0; j < PAT_PKG_DESC_NUM && !found; j++) {
            const uint8_t *have = entry(a.data(), j);
            found = le32(have + PAT_DESC_TYPE_OFFSET) == PAT_TYPE_HOT &&
                    subfile_version(have) == subfile_version(wanted);
        }
        if (!found) *contains = 0;
    }
    return PAT_OK;
}

uint32_t PAT_GetHardTypeOfColdPatHardRst(const char *patch, const char *rpgName, const char *rpgVersion,
                                         DLL_LIST *list) {
    int64_t result = PAT_ERR_PARAM;
    if (zakhost::injected("PAT_GetHardTypeOfColdPatHardRst", &result)) return static_cast<uint32_t>(result);
    if (patch == nullptr || rpgName == nullptr || rpgVersion == nullptr || list == nullptr)
        return PAT_ERR_PARAM;
    std::vector<uint8_t> header(PAT_PKG_HEAD_LEN);
    uint32_t rc = read_header(patch, header.data());
    if (rc != PAT_OK) return rc;
    std::string name(reinterpret_cast<char *>(header.data()));
    if (name != std::string(rpgName) + rpgVersion) return PAT_ERR_PARAM;
    uint32_t count = le32(header.data() + PAT_PKG_NUM_OFFSET);
    std::vector<uint32_t> seen;
    for (uint32_t i = 0; i < count; i++) {
        const uint8_t *desc = entry(header.data(), i);
        if (le32(desc + PAT_DESC_TYPE_OFFSET) == PAT_TYPE_HOT) continue;
        uint32_t board = le32(desc + PAT_DESC_BOARD_OFFSET);
        bool known = false;
        for (uint32_t s : seen)
            known = known || s == board;
        if (known) continue;
        auto *node = static_cast<PAT_HARDTYPE_NODE *>(RPM_Os_Alloc(sizeof(PAT_HARDTYPE_NODE)));
        if (node == nullptr) return PAT_ERR_MEMORY;
        node->uiHardType = board;
        DLL_Add(list, &node->node);
        seen.push_back(board);
    }
    return PAT_OK;
}

uint32_t RPM_GetRealPatchFileName(const char *name, char *fileName, uint32_t fileNameSize, char *fullPath,
                                  uint32_t fullPathSize, uint32_t) {
    int64_t result = 1;
    if (zakhost::injected("RPM_GetRealPatchFileName", &result)) return static_cast<uint32_t>(result);
    if (name == nullptr || *name == '\0' || fileName == nullptr || fullPath == nullptr ||
        std::strchr(name, '/') != nullptr)
        return 1;
    std::string dir = zakhost::in_root(zakhost::profile_string("patch", "dir"));
    for (std::string candidate : {std::string(name), std::string(name) + ".pat"}) {
        std::string path = dir + "/" + candidate;
        struct stat st {};
        if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        if (strcpy_s(fileName, fileNameSize, candidate.c_str()) != EOK ||
            strcpy_s(fullPath, fullPathSize, path.c_str()) != EOK)
            return 1;
        return 0;
    }
    return 1;
}

uint32_t isPatFullPatternCorrect(const char *pattern) {
    if (zakhost::injected("isPatFullPatternCorrect")) return 0;
    if (pattern == nullptr) return 0;
    size_t length = std::strlen(pattern);
    if (length == 0 || length > 63) return 0;
    int runs = 0;
    size_t width = 0;
    for (size_t i = 0; i < length; i++) {
        char c = pattern[i];
        if (c == '#') {
            if (i == 0 || pattern[i - 1] != '#') runs++;
            width++;
        } else if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_') {
            return 0;
        }
    }
    return runs == 1 && width <= 9 ? 1 : 0;
}

uint32_t RPM_GetPatchCustomVersion(const char *name, const char *pattern, char *version, uint32_t size) {
    int64_t result = 1;
    if (zakhost::injected("RPM_GetPatchCustomVersion", &result)) return static_cast<uint32_t>(result);
    if (name == nullptr || version == nullptr || isPatFullPatternCorrect(pattern) == 0) return 1;
    std::string base = name;
    if (ends_with_pat(base)) base.resize(base.size() - 4);
    size_t p = base.find_last_of("Pp");
    if (p == std::string::npos || p + 1 == base.size() ||
        base.find_first_not_of("0123456789", p + 1) != std::string::npos || base.size() - p - 1 > 9)
        return 1;
    uint64_t number = std::stoull(base.substr(p + 1));
    std::string text = pattern;
    size_t start = text.find('#');
    size_t width = text.find_first_not_of('#', start);
    width = (width == std::string::npos ? text.size() : width) - start;
    std::string digits = std::to_string(number);
    if (digits.size() > width) return 1;
    text.replace(start, width, std::string(width - digits.size(), '0') + digits);
    return strcpy_s(version, size, text.c_str()) == EOK ? 0 : 1;
}

uint32_t RPM_MD5_HashFile_ForPatPkg(const char *path, char *digest, uint32_t size) {
    int64_t result = 1;
    if (zakhost::injected("RPM_MD5_HashFile_ForPatPkg", &result)) return static_cast<uint32_t>(result);
    return md5_range(path, 0, 0, digest, size) == 0 ? 0 : 1;
}

uint32_t RPM_MD5_HashFileRange(const char *path, uint64_t offset, uint64_t length, char *digest,
                               uint32_t size) {
    int64_t result = 1;
    if (zakhost::injected("RPM_MD5_HashFileRange", &result)) return static_cast<uint32_t>(result);
    return md5_range(path, offset, length, digest, size);
}

uint32_t ZAK_GetCRLFileRootPath(char *path, uint32_t size) {
    int64_t result = 1;
    if (zakhost::injected("ZAK_GetCRLFileRootPath", &result)) return static_cast<uint32_t>(result);
    if (path == nullptr) return 1;
    std::string root = zakhost::in_root(zakhost::profile_string("cms", "crl_root"));
    return strcpy_s(path, size, root.c_str()) == EOK ? 0 : 1;
}

ZAK_CRL_ROOT_PATH_FUNC ZAK_FindCRLFileRootPath(void) {
    return zakhost::profile_bool("cms", "crl_service") ? &ZAK_GetCRLFileRootPath : nullptr;
}

} // extern "C"
