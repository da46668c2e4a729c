// Runs the call-anything harness without libFuzzer:
//   call_anything_replay FILE|DIR...   every input file given (directories: their files)
//   call_anything_replay --sweep       every function with 0 to 24 arguments of each value kind,
//                                      in the shared and in fresh script states
// A finding aborts with a message naming the function; otherwise it prints what it ran.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "call_anything.h"

namespace {

using Bytes = std::vector<uint8_t>;
using qavfuzz::InputBuilder;

Bytes ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

std::vector<std::string> InputsOf(const std::string &path) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error))
        return std::filesystem::exists(path, error) ? std::vector<std::string>{path}
                                                    : std::vector<std::string>{};
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(path, error))
        if (entry.path().filename().string()[0] != '.') files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

// One argument of each kind, with a payload byte that varies with `salt`.
Bytes Argument(uint8_t kind, uint8_t salt) {
    switch (kind) {
    case qavfuzz::kInteger:
    case qavfuzz::kFloat:
    case qavfuzz::kWord:
    case qavfuzz::kHandle:
    case qavfuzz::kEarlierResult:
        return {kind, salt};
    case qavfuzz::kRawString:
        return {kind, 6, '%', 's', '%', 'n', static_cast<uint8_t>('A' + salt % 26), 0};
    case qavfuzz::kFieldTable:
        return {kind, static_cast<uint8_t>(7 | salt << 3), 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
    default:
        return {kind};
    }
}

int Sweep() {
    size_t calls = 0;
    for (uint8_t shared : {uint8_t{1}, uint8_t{0}}) {
        for (size_t f = 0; f < qavfuzz::FunctionCount(); ++f) {
            for (uint8_t kind = 0; kind < qavfuzz::kKinds; ++kind) {
                // Fresh states cost an open each: there, every third count is enough.
                for (size_t count = 0; count <= qavfuzz::kMaxArgs; count += shared ? 1 : 3) {
                    std::vector<Bytes> args;
                    for (size_t i = 0; i < count; ++i)
                        args.push_back(Argument(kind, static_cast<uint8_t>(count * 7 + i)));
                    Bytes input = InputBuilder(shared).Call(static_cast<uint16_t>(f), args).bytes;
                    qavfuzz::RunInput(input.data(), input.size());
                    ++calls;
                }
            }
        }
    }
    std::printf("sweep: %zu calls of %zu functions, no finding\n", calls, qavfuzz::FunctionCount());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::fprintf(stderr, "usage: call_anything_replay --sweep | FILE|DIR...\n");
        return 2;
    }
    // The harness works inside its sandbox: resolve input paths first.
    for (std::string &path : args) {
        if (char *resolved = realpath(path.c_str(), nullptr)) {
            path = resolved;
            free(resolved);
        }
    }
    qavfuzz::Setup();
    int status = 0;
    if (args.size() == 1 && args[0] == "--sweep") {
        status = Sweep();
    } else {
        size_t inputs = 0;
        for (const std::string &path : args) {
            for (const std::string &file : InputsOf(path)) {
                Bytes input = ReadFile(file);
                qavfuzz::RunInput(input.data(), input.size());
                ++inputs;
            }
        }
        if (inputs == 0) {
            std::fprintf(stderr, "no inputs found\n");
            status = 1;
        } else {
            std::printf("replayed %zu inputs, no finding\n", inputs);
        }
    }
    qavfuzz::Teardown();
    return status;
}
