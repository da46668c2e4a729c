// Internal records of the host package manager, shared by its source files.
#pragma once

#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "issu_pkg.h"
#include "zak_memory.h"

namespace zakhost::pkgmgr {

inline constexpr const char *kSourceTag = "zakhost_pkgmgr";

// Host objects live in blocks of the platform allocator so that the live block count shows an
// object a caller forgot to free.
template <class T, class... Args> T *host_new(Args &&...args) {
    void *block = ZAK_Malloc_F(nullptr, 0, sizeof(T), kSourceTag, __LINE__);
    if (block == nullptr) return nullptr;
    return new (block) T(std::forward<Args>(args)...);
}
template <class T> void host_delete(T *object) {
    if (object == nullptr) return;
    object->~T();
    ZAK_Free_F(object, kSourceTag, __LINE__);
}

// A text the caller frees with RPM_Os_Free; null when no block is left.
char *host_strdup(const std::string &text);

// One entity with the storage its record points into.
struct EntityStore {
    ISSU_ENTITY record{};
    std::string name, section, type, cpu, upgradeMode, incompatibleUpgradeMode, compatibilityVer;
    ISSU_VER versions[3]{};
    std::vector<std::unique_ptr<std::string>> fileNames; // null for a file entry without a name
    struct Requirement {
        std::string name;
        ISSU_VER version{};
        ISSU_REL rel{};
    };
    std::vector<std::unique_ptr<Requirement>> requirements;
    ~EntityStore();
};

} // namespace zakhost::pkgmgr

struct ISSU_PTR_LIST {
    std::vector<std::pair<void *, ISSU_PTR_FREE_FUNC>> items;
};

struct ISSU_PKG {
    bool loaded = false;
    std::string path;
    std::vector<std::unique_ptr<zakhost::pkgmgr::EntityStore>> entities; // description order
    std::map<std::string, zakhost::pkgmgr::EntityStore *, std::less<>> byName;
};

struct IssuCdtNode {
    QAV_RBT_NODE node; // first member: callers hold a pointer to it
    ISSU_CDT *owner;
    std::string key;
};

struct ISSU_CDT {
    std::map<std::string, IssuCdtNode, std::less<>> nodes;
};
