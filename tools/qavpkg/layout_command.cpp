// qavpkg layout: puts a package directory in a device sandbox as a version's base path
// (R/zakv8/main/home/VERSION/base) and, on request, makes it the running version.
#include <string>
#include <vector>

#include "pkg_util.h"
#include "qavpkg.h"

namespace {

constexpr const char *kName = "layout";

int run_layout(const std::vector<std::string> &args) {
    if (args.size() < 3) return qavpkg::fail(kName, "usage: layout DIR ROOT VERSION [--current FILE]");
    const std::string dir = args[0], root = args[1], version = args[2];
    std::string current;
    for (size_t i = 3; i < args.size(); ++i) {
        if (args[i] == "--current" && i + 1 < args.size())
            current = args[++i];
        else
            return qavpkg::fail(kName, "unknown option " + args[i]);
    }
    const std::string base = root + "/zakv8/main/home/" + version + "/base";
    if (!qavpkg::util::make_dirs(base)) return qavpkg::fail(kName, "cannot create " + base);
    if (!qavpkg::util::run({"cp", "-R", dir + "/.", base})) return qavpkg::fail(kName, "cannot copy " + dir);
    if (current.empty()) return qavpkg::wrote(kName, base);
    const std::string zakcfg = root + "/zakv8/main/data/zakcfg.ini";
    const std::string software = "flash0:" + version + "/base/" + current;
    if (!qavpkg::util::ini_set(zakcfg, "[system software information]", "current startup system software ",
                               software))
        return qavpkg::fail(kName, qavpkg::util::cannot_write(zakcfg));
    return qavpkg::wrote(kName, base + " and " + zakcfg + " (current startup software " + software + ")");
}

const qavpkg::Command kLayout{kName,
                              "DIR ROOT VERSION [--current FILE]\n"
                              "        copy DIR to ROOT/zakv8/main/home/VERSION/base; with --current, make\n"
                              "        flash0:VERSION/base/FILE the current startup software",
                              &run_layout};

} // namespace
