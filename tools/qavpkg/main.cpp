// qavpkg: dispatches to the registered subcommands.
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "qavpkg.h"

namespace qavpkg {
namespace {
struct Entry {
    const char *usage;
    CommandFunction run;
};
std::map<std::string, Entry> &commands() {
    static std::map<std::string, Entry> table;
    return table;
}
} // namespace

Command::Command(const char *name, const char *usage, CommandFunction run) {
    commands()[name] = {usage, run};
}

int fail(const char *command, const std::string &message) {
    std::fprintf(stderr, "qavpkg %s: %s\n", command, message.c_str());
    return 1;
}

int wrote(const char *command, const std::string &what) {
    std::printf("qavpkg %s: wrote %s\n", command, what.c_str());
    return 0;
}

std::string counted(size_t count, const char *one, const char *many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

} // namespace qavpkg

int main(int argc, char **argv) {
    auto &commands = qavpkg::commands();
    if (argc < 2 || std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0) {
        std::fprintf(argc < 2 ? stderr : stdout, "usage: qavpkg COMMAND [ARGS...]\n\ncommands:\n");
        for (const auto &[name, entry] : commands)
            std::fprintf(argc < 2 ? stderr : stdout, "  %s %s\n", name.c_str(), entry.usage);
        return argc < 2 ? 2 : 0;
    }
    auto it = commands.find(argv[1]);
    if (it == commands.end()) {
        std::fprintf(stderr, "qavpkg: unknown command '%s' (try 'qavpkg help')\n", argv[1]);
        return 2;
    }
    return it->second.run(std::vector<std::string>(argv + 2, argv + argc));
}
