// Call-anything harness: a byte string decoded into a few calls with arbitrary arguments, each of
// which must return normally, raise no script error and leave no more values than it returns. A
// finding prints the call and aborts, so both libFuzzer and the replay runner stop on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qavfuzz {

// Prepares the scratch device sandbox (ZAKHOST_ROOT, cwd inside it) and the shared script state.
void Setup();
// Closes what the harness still holds and removes the sandbox.
void Teardown();
// Runs one input.
void RunInput(const uint8_t *data, size_t size);

// Input encoding, for the sweep.
inline constexpr size_t kMaxCalls = 4;
inline constexpr size_t kMaxArgs = 24;
enum Kind : uint8_t {
    kNil,
    kFalse,
    kTrue,
    kInteger,      // + 1 byte: index into the integer table
    kFloat,        // + 1 byte: index into the float table
    kWord,         // + 1 byte: index into the string dictionary
    kRawString,    // + 1 length byte + that many bytes
    kEmptyTable,   //
    kFieldTable,   // + 1 byte: field count (low 3 bits) and flavour, then 1 byte per field
    kNullPointer,  // null light user data
    kHandle,       // + 1 byte: a directory stream the library returned and nobody closed
    kEarlierResult // + 1 byte: a result of the previous call of the same input
};
inline constexpr uint8_t kKinds = kEarlierResult + 1;
inline constexpr uint8_t kSharedStateFlag = 1;

// Builds an input: header flags, then per call the registry position, the argument count and
// the argument bytes.
struct InputBuilder {
    std::vector<uint8_t> bytes;
    explicit InputBuilder(uint8_t flags) { bytes.push_back(flags); }
    InputBuilder &Call(uint16_t position, const std::vector<std::vector<uint8_t>> &args) {
        bytes.push_back(static_cast<uint8_t>(position & 0xFF));
        bytes.push_back(static_cast<uint8_t>(position >> 8));
        bytes.push_back(static_cast<uint8_t>(args.size()));
        for (const auto &arg : args)
            bytes.insert(bytes.end(), arg.begin(), arg.end());
        return *this;
    }
};

// Number of registered functions.
size_t FunctionCount();

} // namespace qavfuzz
