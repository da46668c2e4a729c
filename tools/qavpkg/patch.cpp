// `qavpkg patch OUT [options]`: writes a patch package: the 6480-byte header (little-endian
// fields) followed by the payload.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "pat_pkg.h"
#include "pkg_util.h"
#include "qavpkg.h"

namespace qavpkg {
namespace {

void put32(std::vector<uint8_t> &bytes, size_t at, uint32_t value) {
    for (int i = 0; i < 4; i++)
        bytes[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

bool put_text(std::vector<uint8_t> &bytes, size_t at, size_t width, const std::string &text) {
    if (text.size() > width) return false;
    std::memcpy(bytes.data() + at, text.data(), text.size());
    return true;
}

// "SUBVER:TYPE:BOARD[:OFFSET:LENGTH]" into descriptor entry `index`.
std::string put_descriptor(std::vector<uint8_t> &header, uint32_t index, const std::string &descriptor) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t at; (at = descriptor.find(':', start)) != std::string::npos; start = at + 1)
        parts.push_back(descriptor.substr(start, at - start));
    parts.push_back(descriptor.substr(start));
    if (parts.size() != 3 && parts.size() != 5) return "bad descriptor '" + descriptor + "'";
    size_t entry = PAT_PKG_DESC_OFFSET + index * PAT_PKG_DESC_LEN;
    if (!put_text(header, entry, PAT_DESC_SUBVER_LEN, parts[0]))
        return "sub-file version too long: " + parts[0];
    static const size_t kOffsets[] = {PAT_DESC_TYPE_OFFSET, PAT_DESC_BOARD_OFFSET, PAT_DESC_OFFSET_OFFSET,
                                      PAT_DESC_LENGTH_OFFSET};
    for (size_t i = 1; i < parts.size(); i++) {
        uint32_t value = 0;
        if (!util::to_u32(parts[i], &value)) return "bad number '" + parts[i] + "' in descriptor";
        put32(header, entry + kOffsets[i - 1], value);
    }
    return {};
}

int run_patch(const std::vector<std::string> &args) {
    const char *cmd = "patch";
    if (args.empty()) return fail(cmd, "usage: qavpkg patch OUT [options]");
    std::vector<uint8_t> header(PAT_PKG_HEAD_LEN, 0);
    std::vector<uint8_t> payload;
    uint32_t descriptors = 0;
    bool numberGiven = false, lengthGiven = false;
    uint32_t number = 0, fileLength = 0;
    long truncate = -1;
    for (size_t i = 1; i < args.size(); i += 2) {
        const std::string &option = args[i];
        if (i + 1 >= args.size()) return fail(cmd, "option " + option + " needs a value");
        const std::string &value = args[i + 1];
        uint32_t n = 0;
        bool numeric = util::to_u32(value, &n);
        if (option == "--name") {
            if (!put_text(header, 0, PAT_PKG_NAME_LEN - 1, value)) return fail(cmd, "name longer than 31");
        } else if (option == "--patch-version") {
            if (!put_text(header, PAT_PKG_PATCHVER_OFFSET, PAT_PKG_PATCHVER_LEN - 1, value))
                return fail(cmd, "patch version longer than 31");
        } else if (option == "--desc") {
            if (descriptors == PAT_PKG_DESC_NUM) return fail(cmd, "more than 100 descriptors");
            if (std::string err = put_descriptor(header, descriptors++, value); !err.empty())
                return fail(cmd, err);
        } else if (option == "--payload") {
            std::ifstream in(value, std::ios::binary);
            if (!in) return fail(cmd, "cannot read " + value);
            payload.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        } else if (!numeric) {
            return fail(cmd, "option " + option + " needs a number, got '" + value + "'");
        } else if (option == "--type") {
            put32(header, PAT_PKG_TYPE_OFFSET, n);
        } else if (option == "--cms") {
            put32(header, PAT_PKG_CMS_OFFSET, n);
        } else if (option == "--number") {
            number = n;
            numberGiven = true;
        } else if (option == "--payload-bytes") {
            payload.resize(n);
            for (uint32_t b = 0; b < n; b++)
                payload[b] = static_cast<uint8_t>(b * 7 + 1);
        } else if (option == "--file-length") {
            fileLength = n;
            lengthGiven = true;
        } else if (option == "--truncate") {
            truncate = n;
        } else {
            return fail(cmd, "unknown option " + option);
        }
    }
    put32(header, PAT_PKG_NUM_OFFSET, numberGiven ? number : descriptors);
    put32(header, PAT_PKG_FILELEN_OFFSET,
          lengthGiven ? fileLength : static_cast<uint32_t>(header.size() + payload.size()));
    header.insert(header.end(), payload.begin(), payload.end());
    if (truncate >= 0 && static_cast<size_t>(truncate) < header.size())
        header.resize(static_cast<size_t>(truncate));
    FILE *out = std::fopen(args[0].c_str(), "wb");
    if (out == nullptr) return fail(cmd, util::cannot_write(args[0]));
    bool ok = std::fwrite(header.data(), 1, header.size(), out) == header.size();
    ok = std::fclose(out) == 0 && ok;
    if (!ok) return fail(cmd, util::cannot_write(args[0]));
    return wrote(cmd, args[0] + " (" + counted(header.size(), "byte", "bytes") + ", " +
                          counted(descriptors, "descriptor", "descriptors") + ")");
}

const Command kPatch{
    "patch",
    "OUT [--name RPGNAME+MAINVER] [--patch-version V] [--type N] [--cms N] [--number N]\n"
    "      [--desc SUBVER:TYPE:BOARD[:OFFSET:LENGTH]]... [--payload FILE | --payload-bytes N]\n"
    "      [--file-length N] [--truncate N]  build a patch package",
    &run_patch};

} // namespace
} // namespace qavpkg
