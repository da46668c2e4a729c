// `qavlua init R`: the standard device sandbox.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>

#include "host.h"

namespace zakhost {
namespace {

std::vector<std::pair<const char *, std::string (*)(const std::string &)>> &seeds() {
    static std::vector<std::pair<const char *, std::string (*)(const std::string &)>> table;
    return table;
}

std::string write_profile(const std::string &root) {
    std::string path = root + "/zakhost.ini";
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) return {}; // keep an author's own profile
    std::ofstream out(path);
    if (!out) return path + ": cannot write";
    out << "; Device profile of this sandbox. Every key is listed with its default; remove the ';'\n"
           "; in front of a key to set it. See docs/host-platform.md for what each key means.\n";
    std::map<std::string, std::vector<std::pair<std::string, std::string>>> sections;
    for (const auto &[section, key, value] : profile_defaults())
        sections[section].emplace_back(key, value);
    for (const auto &[section, keys] : sections) {
        out << "\n[" << section << "]\n";
        for (const auto &[key, value] : keys)
            out << ';' << key << '=' << value << '\n';
    }
    return {};
}

} // namespace

SandboxSeed::SandboxSeed(const char *name, std::string (*seed)(const std::string &)) {
    seeds().emplace_back(name, seed);
}

std::string init_sandbox(const std::string &root) {
    for (const char *dir : {"/bin", "/home", "/data", "/bootfile", "/pkg_pool/program/current"}) {
        std::string error = make_dirs(root + kCommonRoot + dir);
        if (!error.empty()) return error;
    }
    for (const char *dir : {"/zakv8/data", "/boot", "/opt", "/etc", "/log"}) {
        std::string error = make_dirs(root + dir);
        if (!error.empty()) return error;
    }
    std::string error = write_profile(root);
    if (!error.empty()) return error;
    for (const auto &[name, seed] : seeds()) {
        error = seed(root);
        if (!error.empty()) return std::string(name) + ": " + error;
    }
    return {};
}

} // namespace zakhost
