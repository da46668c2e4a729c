// Unit tests never touch the machine's paths: without ZAKHOST_ROOT each process makes a sandbox.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "host.h"

namespace {

struct ScratchSandbox {
    std::string made;
    ScratchSandbox() {
        const char *root = std::getenv("ZAKHOST_ROOT");
        if (root != nullptr && *root != '\0' && std::string(root) != "/") return;
        char pattern[] = "/tmp/zakhost-unit.XXXXXX";
        if (mkdtemp(pattern) == nullptr) return;
        made = pattern;
        setenv("ZAKHOST_ROOT", pattern, 1);
        zakhost::init_sandbox(pattern);
        zakhost::reset_environment();
    }
    ~ScratchSandbox() {
        std::error_code ignored;
        if (!made.empty()) std::filesystem::remove_all(made, ignored);
    }
};

const ScratchSandbox kScratch;

} // namespace
