// Runs the call-anything harness without libFuzzer:
//   call_anything_replay FILE|DIR...     every input file given (directories: their files)
//   call_anything_replay --sweep         every registered function with every argument count
//                                        from 0 to 24, each count once per value kind, in the
//                                        shared and in fresh script states
//   call_anything_replay --write-seeds DIR   writes the seed corpus
// A finding aborts with a message naming the function; otherwise it prints what it ran.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return {};
    if (!S_ISDIR(st.st_mode)) return {path};
    std::vector<std::string> files;
    if (DIR *d = opendir(path.c_str())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.') files.push_back(path + "/" + e->d_name);
        closedir(d);
    }
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

uint16_t At(const char *script) {
    int position = qavfuzz::PositionOf(script);
    if (position < 0) {
        std::fprintf(stderr, "no function %s\n", script);
        std::exit(2);
    }
    return static_cast<uint16_t>(position);
}

// The seeds: per function a call with a mixed argument list, plus chains where one call uses
// what the previous one returned (file handles, directory streams, named locks).
std::vector<Bytes> Seeds() {
    auto Word = [](uint8_t index) { return Bytes{qavfuzz::kWord, index}; };
    auto Int = [](uint8_t index) { return Bytes{qavfuzz::kInteger, index}; };
    auto Earlier = [](uint8_t index) { return Bytes{qavfuzz::kEarlierResult, index}; };
    std::vector<Bytes> seeds;
    for (size_t f = 0; f < qavfuzz::FunctionCount(); ++f) {
        uint8_t salt = static_cast<uint8_t>(f);
        std::vector<Bytes> args;
        size_t count = f % 5;
        for (size_t i = 0; i < count; ++i)
            args.push_back(Argument(static_cast<uint8_t>((f + i * 3) % qavfuzz::kKinds),
                                    static_cast<uint8_t>(salt + i)));
        seeds.push_back(InputBuilder(f & 1).Call(static_cast<uint16_t>(f), args).bytes);
    }
    // Word indexes: 2 "work/f.txt", 3 "work/dir", 15 "r", 16 "w", 23 "set".
    seeds.push_back(InputBuilder(0)
                        .Call(At("qav_spt_fopen"), {Word(2), Word(15)})
                        .Call(At("qav_spt_readline"), {Earlier(1)})
                        .Call(At("qav_spt_fclose"), {Earlier(0)})
                        .bytes);
    seeds.push_back(InputBuilder(1)
                        .Call(At("luafs_opendir"), {Word(3)})
                        .Call(At("luafs_readdir"), {Earlier(0)})
                        .Call(At("luafs_closedir"), {{qavfuzz::kHandle, 0}})
                        .Call(At("luafs_readdir"), {{qavfuzz::kHandle, 0}})
                        .bytes);
    seeds.push_back(InputBuilder(0)
                        .Call(At("luafs_cp"), {Word(3), Word(6)})
                        .Call(At("luafs_mv"), {Word(6), Word(7)})
                        .Call(At("luafs_rm"), {Word(1)})
                        .bytes);
    seeds.push_back(InputBuilder(1)
                        .Call(At("qav_pat_lock_init"), {})
                        .Call(At("qav_pat_lock_Lock"), {})
                        .Call(At("qav_pat_lock_Lock"), {})
                        .Call(At("qav_pat_lock_Unlock"), {})
                        .bytes);
    seeds.push_back(InputBuilder(0)
                        .Call(At("qav_spt_fopen"), {Word(6), Word(16)})
                        .Call(At("qav_spt_fwrite"), {Earlier(1), Word(26)})
                        .Call(At("qav_spt_seek"), {Earlier(0), Word(23), Int(0)})
                        .bytes);
    return seeds;
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

int WriteSeeds(const std::string &dir) {
    mkdir(dir.c_str(), 0755);
    std::vector<Bytes> seeds = Seeds();
    for (size_t i = 0; i < seeds.size(); ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "/seed-%03zu", i);
        std::ofstream out(dir + name, std::ios::binary);
        out.write(reinterpret_cast<const char *>(seeds[i].data()),
                  static_cast<std::streamsize>(seeds[i].size()));
    }
    std::printf("%zu seeds written to %s\n", seeds.size(), dir.c_str());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 2 && args[0] == "--write-seeds") return WriteSeeds(args[1]);
    if (args.empty()) {
        std::fprintf(stderr, "usage: call_anything_replay --sweep | --write-seeds DIR | FILE|DIR...\n");
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
