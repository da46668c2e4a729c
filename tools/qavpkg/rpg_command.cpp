// qavpkg rpg: a package (tar.gz) holding an RPG image, itself a tar archive with its rpg.rinfo.
#include <string>
#include <vector>

#include "pkg_util.h"
#include "qavpkg.h"

namespace {

constexpr const char *kName = "rpg";

int run_rpg(const std::vector<std::string> &args) {
    if (args.empty()) return qavpkg::fail(kName, "missing OUT.tar.gz");
    const std::string output = args[0];
    std::string name = "testrpg", version = "V100R001", type = "program", image = "image.rpg";
    bool withRinfo = true;
    std::vector<std::string> extras;
    std::vector<std::string> extraDirs;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--no-rinfo") {
            withRinfo = false;
            continue;
        }
        if (i + 1 >= args.size()) return qavpkg::fail(kName, "option " + a + " needs a value");
        const std::string &v = args[++i];
        if (a == "--name")
            name = v;
        else if (a == "--version")
            version = v;
        else if (a == "--type")
            type = v;
        else if (a == "--image")
            image = v;
        else if (a == "--extra")
            extras.push_back(v);
        else if (a == "--extra-dir")
            extraDirs.push_back(v);
        else
            return qavpkg::fail(kName, "unknown option " + a);
    }
    // tar would only say that it cannot open the archive: name the directory that is missing.
    if (!qavpkg::util::parent_is_directory(output))
        return qavpkg::fail(kName, qavpkg::util::cannot_write(output));
    const std::string work = qavpkg::util::temp_dir();
    if (work.empty()) return qavpkg::fail(kName, "cannot create a scratch directory");
    const std::string imageDir = work + "/image";
    const std::string packageDir = work + "/package";
    bool ok = qavpkg::util::make_dirs(imageDir) && qavpkg::util::make_dirs(packageDir);
    ok = ok && qavpkg::util::write_file(imageDir + "/payload.bin", "rpg payload of " + name + "\n");
    if (ok && withRinfo)
        ok = qavpkg::util::write_file(imageDir + "/rpg.rinfo", "RpgName=" + name + "\nRpgVersion=" + version +
                                                                   "\nRpgType=" + type + "\n");
    std::vector<std::string> members;
    if (!image.empty()) {
        ok = ok && qavpkg::util::run({"tar", "-cf", packageDir + "/" + image, "-C", imageDir, "."});
        members.push_back(image);
    }
    for (const auto &extra : extras) {
        ok = ok && qavpkg::util::write_file(packageDir + "/" + extra, "extra file " + extra + "\n");
        members.push_back(extra);
    }
    for (const auto &dir : extraDirs) {
        ok = ok && qavpkg::util::make_dirs(packageDir + "/" + dir);
        members.push_back(dir);
    }
    std::vector<std::string> tar = {"tar", "-czf", output, "-C", packageDir};
    tar.insert(tar.end(), members.begin(), members.end());
    if (members.empty()) tar.push_back(".");
    ok = ok && qavpkg::util::run(tar);
    qavpkg::util::remove_tree(work);
    if (!ok) return qavpkg::fail(kName, "cannot build " + output);
    return qavpkg::wrote(kName, output + " (" + (image.empty() ? "no image" : image) + ", " + name + " " +
                                    version + ")");
}

const qavpkg::Command kRpg{kName,
                           "OUT.tar.gz [--name N] [--version V] [--type T] [--image NAME.rpg] [--no-rinfo]\n"
                           "        [--extra FILE]... [--extra-dir DIR]...\n"
                           "        build a package holding an RPG image (a tar archive with rpg.rinfo)",
                           &run_rpg};

} // namespace
