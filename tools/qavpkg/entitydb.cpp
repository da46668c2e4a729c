// `qavpkg entitydb ROOT [entity options]`: writes the device's current entity database
// ("c_entity") into the sandbox ROOT, at the path the profile's [pkgmgr] entity_db names
// (default /zakv8/main/data/c_entity.xml), in the package description format.
#include <sys/stat.h>

#include <fstream>

#include "pkgdesc.h"
#include "qavpkg.h"

namespace qavpkg {
namespace {

// The profile's entity_db value, or the default.
std::string entity_db_path(const std::string &root) {
    std::ifstream in(root + "/zakhost.ini");
    std::string line, section, path = "/zakv8/main/data/c_entity.xml";
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty() && line[0] == '[') {
            section = line.substr(1, line.find(']') - 1);
        } else if (section == "pkgmgr" && line.rfind("entity_db=", 0) == 0) {
            path = line.substr(10);
            path.erase(0, path.find_first_not_of(" \t"));
        }
    }
    return root + (path.empty() || path[0] != '/' ? "/" : "") + path;
}

void make_parents(const std::string &path) {
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0755);
}

int run_entitydb(const std::vector<std::string> &args) {
    if (args.empty())
        return fail("entitydb",
                    std::string("usage: qavpkg entitydb ROOT [entity options]\n  ") + kEntityOptionsHelp);
    std::string path = entity_db_path(args[0]);
    make_parents(path);
    std::string err = write_package_description(args, 1, path);
    if (!err.empty()) return fail("entitydb", err);
    return wrote("entitydb", path + entity_count(args, 1));
}

const Command kEntitydb{"entitydb", "ROOT [--entity NAME [options]]...  write the device's entity database",
                        &run_entitydb};

} // namespace
} // namespace qavpkg
