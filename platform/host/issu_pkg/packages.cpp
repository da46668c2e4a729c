// Package descriptions: loading the XML form, entity lookup, comparison, requirement checks,
// who-requires closures and entity groups.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <set>

#include "host.h"
#include "pkg_internal.h"
#include "versions.h"

namespace zakhost::pkgmgr {
namespace {

constexpr const char *kEntityDbName = "c_entity";

std::string attribute(xmlNode *node, const char *name, bool *present = nullptr) {
    xmlChar *value = xmlGetProp(node, reinterpret_cast<const xmlChar *>(name));
    if (present != nullptr) *present = value != nullptr;
    if (value == nullptr) return {};
    std::string text(reinterpret_cast<const char *>(value));
    xmlFree(value);
    return text;
}

std::string content(xmlNode *node) {
    xmlChar *value = xmlNodeGetContent(node);
    if (value == nullptr) return {};
    std::string text(reinterpret_cast<const char *>(value));
    xmlFree(value);
    size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    size_t last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

bool is(xmlNode *node, const char *name) {
    return node->type == XML_ELEMENT_NODE &&
           xmlStrcmp(node->name, reinterpret_cast<const xmlChar *>(name)) == 0;
}

bool parse_number(const std::string &text, uint64_t limit, uint64_t *value) {
    std::optional<int64_t> parsed = zakhost::parse_int(text);
    if (!parsed || *parsed < 0 || static_cast<uint64_t>(*parsed) > limit) return false;
    *value = static_cast<uint64_t>(*parsed);
    return true;
}

// Points the record's fields at the store's own texts and lists.
void link_record(EntityStore &store, bool hasVersion[3], ISSU_PTR_LIST *files, ISSU_PTR_LIST *requirements) {
    ISSU_ENTITY &rec = store.record;
    auto text = [](std::string &s) { return s.empty() ? nullptr : s.data(); };
    rec.pcName = store.name.data();
    rec.pcSection = text(store.section);
    rec.pcType = text(store.type);
    rec.pcCpu = text(store.cpu);
    rec.pcUpgradeMode = text(store.upgradeMode);
    rec.pcIncompatibleUpgradeMode = text(store.incompatibleUpgradeMode);
    rec.pcCompatibilityVer = text(store.compatibilityVer);
    rec.pstVersion = hasVersion[0] ? &store.versions[0] : nullptr;
    rec.pstCurVersion = hasVersion[1] ? &store.versions[1] : nullptr;
    rec.pstCompVersion = hasVersion[2] ? &store.versions[2] : nullptr;
    rec.pstFiles = files;
    rec.pstRequires = requirements;
}

int32_t parse_entity(xmlNode *element, std::unique_ptr<EntityStore> &out) {
    auto store = std::make_unique<EntityStore>();
    bool present = false;
    store->name = attribute(element, "name", &present);
    if (store->name.empty()) return ISSU_PKG_ERR_PARSE;
    uint64_t number = 0;
    std::string id = attribute(element, "id", &present);
    if (present && !parse_number(id, 0xFFFFFFFFULL, &number)) return ISSU_PKG_ERR_PARSE;
    store->record.uiId = static_cast<uint32_t>(number);
    store->section = attribute(element, "section", &present);
    if (!present) store->section = "entity";
    store->type = attribute(element, "type");
    store->cpu = attribute(element, "cpu");

    bool hasVersion[3] = {false, false, false};
    static const char *const kVersionNames[3] = {"Version", "CurVersion", "CompVersion"};
    for (xmlNode *child = element->children; child != nullptr; child = child->next) {
        if (child->type != XML_ELEMENT_NODE) continue;
        bool known = false;
        for (int i = 0; i < 3; i++)
            if (is(child, kVersionNames[i])) {
                if (!parse_version(content(child), &store->versions[i])) return ISSU_PKG_ERR_PARSE;
                hasVersion[i] = known = true;
            }
        if (known) continue;
        if (is(child, "Compat") || is(child, "ChangeFlag")) {
            if (!parse_number(content(child), 0xFF, &number)) return ISSU_PKG_ERR_PARSE;
            (is(child, "Compat") ? store->record.ucCompat : store->record.ucChangeFlag) =
                static_cast<uint8_t>(number);
        } else if (is(child, "UpgradeMode")) {
            store->upgradeMode = content(child);
        } else if (is(child, "IncompatibleUpgradeMode")) {
            store->incompatibleUpgradeMode = content(child);
        } else if (is(child, "CompatibilityVer")) {
            store->compatibilityVer = content(child);
        } else if (is(child, "File")) {
            std::string name = content(child);
            store->fileNames.push_back(name.empty() ? nullptr : std::make_unique<std::string>(name));
        } else if (is(child, "Require")) {
            auto req = std::make_unique<EntityStore::Requirement>();
            req->name = attribute(child, "name");
            if (req->name.empty()) return ISSU_PKG_ERR_PARSE;
            bool hasRel = false, hasVer = false;
            std::string rel = attribute(child, "rel", &hasRel);
            std::string ver = attribute(child, "version", &hasVer);
            req->rel.uiOp = ISSU_REL_ANY;
            if (hasRel || hasVer) {
                if (!hasRel || !hasVer || !parse_relation(rel, &req->rel.uiOp) || ver.empty() ||
                    !parse_version(ver, &req->version))
                    return ISSU_PKG_ERR_PARSE;
                req->rel.pstVersion = &req->version;
            }
            req->rel.pcName = req->name.data();
            store->requirements.push_back(std::move(req));
        }
    }

    ISSU_PTR_LIST *files = nullptr;
    if (!store->fileNames.empty()) {
        files = host_new<ISSU_PTR_LIST>();
        if (files == nullptr) return ISSU_PKG_ERR_MEMORY;
        for (auto &name : store->fileNames)
            files->items.emplace_back(name ? name->data() : nullptr, nullptr);
    }
    ISSU_PTR_LIST *requirements = host_new<ISSU_PTR_LIST>();
    if (requirements == nullptr) {
        host_delete(files);
        return ISSU_PKG_ERR_MEMORY;
    }
    for (auto &req : store->requirements)
        requirements->items.emplace_back(&req->rel, nullptr);
    link_record(*store, hasVersion, files, requirements);
    out = std::move(store);
    return ISSU_PKG_OK;
}

int32_t parse_document(ISSU_PKG *package, const std::string &file) {
    zakhost::XmlErrorsQuiet quiet; // an unreadable description is the caller's failure code
    xmlDoc *doc =
        xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) return access(file.c_str(), R_OK) == 0 ? ISSU_PKG_ERR_PARSE : ISSU_PKG_ERR_OPEN;
    int32_t rc = ISSU_PKG_OK;
    xmlNode *root = xmlDocGetRootElement(doc);
    if (root == nullptr || !is(root, "PackageDescription")) rc = ISSU_PKG_ERR_PARSE;
    for (xmlNode *child = root != nullptr ? root->children : nullptr; rc == ISSU_PKG_OK && child != nullptr;
         child = child->next) {
        if (!is(child, "Entity")) continue;
        std::unique_ptr<EntityStore> store;
        rc = parse_entity(child, store);
        if (rc != ISSU_PKG_OK) break;
        if (package->byName.count(store->name) != 0) {
            rc = ISSU_PKG_ERR_PARSE;
            break;
        }
        package->byName.emplace(store->name, store.get());
        package->entities.push_back(std::move(store));
    }
    xmlFreeDoc(doc);
    if (rc != ISSU_PKG_OK) {
        package->byName.clear();
        package->entities.clear();
    }
    return rc;
}

EntityStore *find(ISSU_PKG *package, std::string_view name) {
    if (package == nullptr) return nullptr;
    auto it = package->byName.find(name);
    return it == package->byName.end() ? nullptr : it->second;
}

bool same_versions(const ISSU_VER *a, const ISSU_VER *b) {
    if (a == nullptr || b == nullptr) return a == b;
    return ISSU_VER_Compare(a, b) == 0;
}

bool same_texts(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) return a == b;
    return std::strcmp(a, b) == 0;
}

bool same_lists(const ISSU_PTR_LIST *a, const ISSU_PTR_LIST *b,
                const std::function<bool(void *, void *)> &same) {
    uint32_t count = ISSU_PtrListCountNum(a);
    if (count != ISSU_PtrListCountNum(b)) return false;
    for (uint32_t i = 1; i <= count; i++)
        if (!same(ISSU_PtrListGetNode(a, i), ISSU_PtrListGetNode(b, i))) return false;
    return true;
}

// An entity present in both packages is modified when its version, compatibility, files or
// requirements differ.
bool differs(const ISSU_ENTITY &a, const ISSU_ENTITY &b) {
    if (!same_versions(a.pstVersion, b.pstVersion) || a.ucCompat != b.ucCompat) return true;
    auto sameFile = [](void *x, void *y) {
        return same_texts(static_cast<char *>(x), static_cast<char *>(y));
    };
    auto sameRel = [](void *x, void *y) {
        auto *r = static_cast<ISSU_REL *>(x);
        auto *s = static_cast<ISSU_REL *>(y);
        return same_texts(r->pcName, s->pcName) && r->uiOp == s->uiOp &&
               same_versions(r->pstVersion, s->pstVersion);
    };
    return !same_lists(a.pstFiles, b.pstFiles, sameFile) ||
           !same_lists(a.pstRequires, b.pstRequires, sameRel);
}

void add_to(ISSU_CDT *container, EntityStore *store) {
    auto [it, inserted] = container->nodes.try_emplace(store->name);
    if (inserted) {
        it->second.node.pstEntity = &store->record;
        it->second.owner = container;
        it->second.key = store->name;
    }
}

void free_group(void *item) {
    auto *group = static_cast<ISSU_ENTITY_GROUP *>(item);
    if (group == nullptr) return;
    ISSU_CDT_Delete(group->pstEntities);
    RPM_Os_Free(group);
}

} // namespace

EntityStore::~EntityStore() {
    host_delete(record.pstFiles);
    host_delete(record.pstRequires);
}

} // namespace zakhost::pkgmgr

using namespace zakhost::pkgmgr;

extern "C" {

ISSU_PKG *ISSU_PKG_CreatePkg(void) {
    if (zakhost::injected("ISSU_PKG_CreatePkg")) return nullptr;
    return host_new<ISSU_PKG>();
}

int32_t ISSU_PKG_Load(ISSU_PKG *package, const char *path) {
    int64_t result = ISSU_PKG_ERR_OPEN;
    if (zakhost::injected("ISSU_PKG_Load", &result)) return static_cast<int32_t>(result);
    if (package == nullptr || path == nullptr || *path == '\0') return ISSU_PKG_ERR_PARAM;
    if (package->loaded) return ISSU_PKG_ERR_LOADED;
    std::string file = path;
    if (file == kEntityDbName) file = zakhost::in_root(zakhost::profile_string("pkgmgr", "entity_db"));
    int32_t rc = parse_document(package, file);
    if (rc == ISSU_PKG_OK) {
        package->loaded = true;
        package->path = file;
    }
    return rc;
}

void ISSU_PKG_DeletePkg(ISSU_PKG *package) {
    host_delete(package);
}

ISSU_ENTITY *ISSU_PKG_QueryEntity(ISSU_PKG *package, const char *name) {
    if (zakhost::injected("ISSU_PKG_QueryEntity")) return nullptr;
    if (name == nullptr) return nullptr;
    EntityStore *store = find(package, name);
    return store == nullptr ? nullptr : &store->record;
}

int32_t ISSU_Pkg_Compare(ISSU_PKG *first, ISSU_PKG *second, ISSU_PTR_LIST *modified, ISSU_PTR_LIST *added,
                         ISSU_PTR_LIST *removed) {
    int64_t result = ISSU_PKG_ERR_PARAM;
    if (zakhost::injected("ISSU_Pkg_Compare", &result)) return static_cast<int32_t>(result);
    if (first == nullptr || second == nullptr || modified == nullptr || added == nullptr ||
        removed == nullptr)
        return ISSU_PKG_ERR_PARAM;
    for (auto &store : second->entities) {
        EntityStore *old = find(first, store->name);
        if (old == nullptr)
            added->items.emplace_back(&store->record, nullptr);
        else if (differs(old->record, store->record))
            modified->items.emplace_back(&store->record, nullptr);
    }
    for (auto &store : first->entities)
        if (find(second, store->name) == nullptr) removed->items.emplace_back(&store->record, nullptr);
    return ISSU_PKG_OK;
}

int32_t ISSU_PKG_CheckDep(ISSU_PKG *package, const char *name, ISSU_PTR_LIST *matched,
                          ISSU_PTR_LIST *mismatched) {
    int64_t result = ISSU_PKG_ERR_PARAM;
    if (zakhost::injected("ISSU_PKG_CheckDep", &result)) return static_cast<int32_t>(result);
    if (package == nullptr || name == nullptr || matched == nullptr || mismatched == nullptr)
        return ISSU_PKG_ERR_PARAM;
    EntityStore *store = find(package, name);
    if (store == nullptr) return ISSU_PKG_ERR_NOT_FOUND;
    for (auto &req : store->requirements) {
        EntityStore *target = find(package, req->name);
        bool met = target != nullptr && satisfies(target->record.pstVersion, req->rel);
        (met ? matched : mismatched)->items.emplace_back(&req->rel, nullptr);
    }
    return ISSU_PKG_OK;
}

int32_t ISSU_PKG_WhoRequireDeap(ISSU_PKG *package, const char *name, ISSU_CDT *container) {
    int64_t result = ISSU_PKG_ERR_PARAM;
    if (zakhost::injected("ISSU_PKG_WhoRequireDeap", &result)) return static_cast<int32_t>(result);
    if (package == nullptr || name == nullptr || container == nullptr) return ISSU_PKG_ERR_PARAM;
    std::map<std::string, std::vector<EntityStore *>, std::less<>> requiredBy;
    for (auto &store : package->entities)
        for (auto &req : store->requirements)
            requiredBy[req->name].push_back(store.get());
    std::set<std::string, std::less<>> seen{name};
    std::deque<std::string> pending{name};
    while (!pending.empty()) {
        auto it = requiredBy.find(pending.front());
        pending.pop_front();
        if (it == requiredBy.end()) continue;
        for (EntityStore *store : it->second) {
            if (!seen.insert(store->name).second) continue;
            add_to(container, store);
            pending.push_back(store->name);
        }
    }
    return ISSU_PKG_OK;
}

int32_t ISSU_PKG_EntityGroup(ISSU_PKG *first, ISSU_PKG *second, ISSU_PTR_LIST *names, ISSU_PTR_LIST *groups) {
    int64_t result = ISSU_PKG_ERR_PARAM;
    if (zakhost::injected("ISSU_PKG_EntityGroup", &result)) return static_cast<int32_t>(result);
    if (first == nullptr || second == nullptr || groups == nullptr) return ISSU_PKG_ERR_PARAM;

    // The members: every entity that differs, and every named entity either package knows.
    std::map<std::string, std::string, std::less<>> parent; // union-find over names
    auto add = [&](const std::string &n) {
        if (find(first, n) != nullptr || find(second, n) != nullptr) parent.try_emplace(n, n);
    };
    for (auto &store : second->entities) {
        EntityStore *old = find(first, store->name);
        if (old == nullptr || differs(old->record, store->record)) add(store->name);
    }
    for (auto &store : first->entities)
        if (find(second, store->name) == nullptr) add(store->name);
    for (uint32_t i = 1; i <= ISSU_PtrListCountNum(names); i++)
        if (auto *n = static_cast<const char *>(ISSU_PtrListGetNode(names, i)); n != nullptr) add(n);

    std::function<std::string(const std::string &)> root = [&](const std::string &n) {
        std::string &p = parent[n];
        if (p != n) p = root(p);
        return p;
    };
    for (auto &[member, unused] : parent) {
        (void)unused;
        for (EntityStore *store : {find(first, member), find(second, member)}) {
            if (store == nullptr) continue;
            for (auto &req : store->requirements)
                if (parent.count(req->name) != 0) {
                    std::string a = root(member), b = root(req->name);
                    if (a != b) parent[std::max(a, b)] = std::min(a, b);
                }
        }
    }

    // Groups in the order of their smallest member name (the root is that name).
    std::map<std::string, ISSU_ENTITY_GROUP *> byRoot;
    int32_t rc = ISSU_PKG_OK;
    for (auto &[member, unused] : parent) {
        (void)unused;
        std::string r = root(member);
        ISSU_ENTITY_GROUP *&group = byRoot[r];
        if (group == nullptr) {
            group = static_cast<ISSU_ENTITY_GROUP *>(RPM_Os_Alloc(sizeof(ISSU_ENTITY_GROUP)));
            ISSU_CDT *container = group != nullptr ? ISSU_CDT_Create() : nullptr;
            if (container == nullptr) {
                RPM_Os_Free(group);
                group = nullptr;
                rc = ISSU_PKG_ERR_MEMORY;
                break;
            }
            group->uiGroupId = static_cast<uint32_t>(ISSU_PtrListCountNum(groups) + 1);
            group->pstEntities = container;
            groups->items.emplace_back(group, &free_group);
        }
        EntityStore *store = find(second, member);
        add_to(group->pstEntities, store != nullptr ? store : find(first, member));
    }
    return rc;
}

} // extern "C"
