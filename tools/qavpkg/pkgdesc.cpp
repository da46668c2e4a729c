// `qavpkg pkgdesc OUT [entity options]`: writes a package description (the XML the package
// manager loads) with one <Entity> per --entity option; the options after it describe it.
#include <libxml/tree.h>

#include <map>

#include "pkg_util.h"
#include "pkgdesc.h"
#include "qavpkg.h"

namespace qavpkg {

const char *const kEntityOptionsHelp =
    "--entity NAME starts an entity; then --id N --section S --type T --cpu C --version V\n"
    "      --cur-version V --comp-version V --compat N --change-flag N --upgrade-mode M\n"
    "      --incompatible-upgrade-mode M --compatibility-ver V --file NAME (repeatable, \"\" for an\n"
    "      entry without a name) --require 'NAME[ OP VERSION]' (repeatable, OP one of = >= <= > <)";

namespace {

// Option -> child element holding its text.
const std::map<std::string, const char *> kChildren = {
    {"--version", "Version"},
    {"--cur-version", "CurVersion"},
    {"--comp-version", "CompVersion"},
    {"--compat", "Compat"},
    {"--change-flag", "ChangeFlag"},
    {"--upgrade-mode", "UpgradeMode"},
    {"--incompatible-upgrade-mode", "IncompatibleUpgradeMode"},
    {"--compatibility-ver", "CompatibilityVer"},
    {"--file", "File"},
};
// Option -> attribute of <Entity>.
const std::map<std::string, const char *> kAttributes = {
    {"--id", "id"}, {"--section", "section"}, {"--type", "type"}, {"--cpu", "cpu"}};

const xmlChar *x(const char *text) {
    return reinterpret_cast<const xmlChar *>(text);
}

// "rib >= 1.2" or "rib" into a <Require> element.
std::string add_requirement(xmlNode *entity, const std::string &requirement) {
    static const char *const kOps[] = {">=", "<=", "=", ">", "<"};
    xmlNode *req = xmlNewChild(entity, nullptr, x("Require"), nullptr);
    for (const char *op : kOps) {
        size_t at = requirement.find(op);
        if (at == std::string::npos) continue;
        auto trim = [](std::string s) {
            s.erase(0, s.find_first_not_of(' '));
            s.erase(s.find_last_not_of(' ') + 1);
            return s;
        };
        std::string name = trim(requirement.substr(0, at));
        std::string version = trim(requirement.substr(at + std::string(op).size()));
        if (name.empty() || version.empty()) return "bad requirement '" + requirement + "'";
        xmlNewProp(req, x("name"), x(name.c_str()));
        xmlNewProp(req, x("rel"), x(op));
        xmlNewProp(req, x("version"), x(version.c_str()));
        return {};
    }
    if (requirement.empty()) return "empty requirement";
    xmlNewProp(req, x("name"), x(requirement.c_str()));
    return {};
}

std::string build(xmlNode *root, const std::vector<std::string> &options, size_t first) {
    xmlNode *entity = nullptr;
    for (size_t i = first; i < options.size(); i += 2) {
        const std::string &option = options[i];
        if (i + 1 >= options.size()) return "option " + option + " needs a value";
        const std::string &value = options[i + 1];
        if (option == "--entity") {
            entity = xmlNewChild(root, nullptr, x("Entity"), nullptr);
            xmlNewProp(entity, x("name"), x(value.c_str()));
            continue;
        }
        if (entity == nullptr) return "option " + option + " before the first --entity";
        if (auto a = kAttributes.find(option); a != kAttributes.end()) {
            xmlSetProp(entity, x(a->second), x(value.c_str()));
        } else if (auto c = kChildren.find(option); c != kChildren.end()) {
            xmlNewTextChild(entity, nullptr, x(c->second), x(value.c_str()));
        } else if (option == "--require") {
            if (std::string err = add_requirement(entity, value); !err.empty()) return err;
        } else {
            return "unknown option " + option;
        }
    }
    return {};
}

int run_pkgdesc(const std::vector<std::string> &args) {
    if (args.empty())
        return fail("pkgdesc",
                    std::string("usage: qavpkg pkgdesc OUT [entity options]\n  ") + kEntityOptionsHelp);
    std::string err = write_package_description(args, 1, args[0]);
    return err.empty() ? wrote("pkgdesc", args[0] + entity_count(args, 1)) : fail("pkgdesc", err);
}

const Command kPkgdesc{"pkgdesc", "OUT [--entity NAME [options]]...  build a package description",
                       &run_pkgdesc};

} // namespace

std::string entity_count(const std::vector<std::string> &options, size_t first) {
    size_t count = 0;
    for (size_t i = first; i < options.size(); i += 2)
        count += options[i] == "--entity" ? 1 : 0;
    return " (" + counted(count, "entity", "entities") + ")";
}

std::string write_package_description(const std::vector<std::string> &options, size_t first,
                                      const std::string &path) {
    xmlDoc *doc = xmlNewDoc(x("1.0"));
    xmlNode *root = xmlNewNode(nullptr, x("PackageDescription"));
    xmlDocSetRootElement(doc, root);
    std::string err = build(root, options, first);
    if (err.empty() && !util::save_xml(doc, path)) err = util::cannot_write(path);
    xmlFreeDoc(doc);
    return err;
}

} // namespace qavpkg
