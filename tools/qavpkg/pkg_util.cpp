// File, digest and process helpers of the package-building subcommands.
#include "pkg_util.h"

#include <fcntl.h>
#include <ftw.h>
#include <openssl/evp.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <cstdlib>
#include <fstream>
#include <sstream>

extern char **environ;

namespace qavpkg::util {

std::string sha256_file(const std::string &path) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    bool ok = ctx != nullptr && EVP_DigestInit_ex(ctx, EVP_sha256(), nullptr) == 1;
    std::vector<unsigned char> buffer(1 << 20);
    while (ok) {
        ssize_t n = read(fd, buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = n == 0;
            break;
        }
        ok = EVP_DigestUpdate(ctx, buffer.data(), static_cast<size_t>(n)) == 1;
    }
    close(fd);
    unsigned char digest[32];
    unsigned int length = 0;
    ok = ok && EVP_DigestFinal_ex(ctx, digest, &length) == 1 && length == 32;
    EVP_MD_CTX_free(ctx);
    if (!ok) return {};
    static const char kHex[] = "0123456789abcdef";
    std::string text;
    for (unsigned char byte : digest) {
        text += kHex[byte >> 4];
        text += kHex[byte & 0xF];
    }
    return text;
}

bool run(const std::vector<std::string> &argv) {
    std::vector<char *> args;
    for (const auto &a : argv)
        args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawnp(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0) return false;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string temp_dir() {
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qavpkg.XXXXXX";
    std::vector<char> text(pattern.begin(), pattern.end());
    text.push_back('\0');
    return mkdtemp(text.data()) != nullptr ? std::string(text.data()) : std::string();
}

static int remove_entry(const char *path, const struct stat *, int, struct FTW *) {
    return ::remove(path) == 0 || errno == ENOENT ? 0 : -1;
}

bool remove_tree(const std::string &path) {
    return nftw(path.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS) == 0;
}

static std::string parent_of(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

bool parent_is_directory(const std::string &path) {
    struct stat st {};
    return stat(parent_of(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

static void ignore_xml_message(void *, const char *, ...) {}

bool save_xml(xmlDoc *doc, const std::string &path) {
    xmlSetGenericErrorFunc(nullptr, ignore_xml_message);
    return xmlSaveFormatFileEnc(path.c_str(), doc, "UTF-8", 1) >= 0;
}

std::string cannot_write(const std::string &path) {
    int error = errno;
    if (!parent_is_directory(path)) return "cannot write " + path + ": no directory " + parent_of(path);
    return "cannot write " + path + (error != 0 ? ": " + std::string(std::strerror(error)) : std::string());
}

bool to_u32(const std::string &text, uint32_t *value) {
    if (text.empty() || !std::isxdigit(static_cast<unsigned char>(text[0]))) return false;
    bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    char *end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(text.c_str(), &end, hex ? 16 : 10);
    if (*end != '\0' || errno != 0 || v > 0xFFFFFFFFULL) return false;
    *value = static_cast<uint32_t>(v);
    return true;
}

bool make_dirs(const std::string &path) {
    for (size_t pos = path.find('/', 1);; pos = path.find('/', pos + 1)) {
        std::string partial = path.substr(0, pos);
        if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return false;
        if (pos == std::string::npos) return true;
    }
}

bool write_file(const std::string &path, const std::string &content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return static_cast<bool>(out);
}

bool ini_set(const std::string &file, const std::string &section, const std::string &key,
             const std::string &value) {
    std::vector<std::string> lines;
    {
        std::ifstream in(file);
        std::string line;
        while (std::getline(in, line))
            lines.push_back(line);
    }
    bool inSection = false;
    bool done = false;
    size_t sectionEnd = lines.size();
    bool sectionSeen = false;
    for (size_t i = 0; i < lines.size() && !done; ++i) {
        const std::string &line = lines[i];
        if (!line.empty() && line[0] == '[') {
            if (inSection) sectionEnd = i;
            inSection = line == section;
            if (inSection) sectionSeen = true;
            continue;
        }
        if (inSection && line.compare(0, key.size() + 1, key + "=") == 0) {
            lines[i] = key + "=" + value;
            done = true;
        }
    }
    if (!done) {
        if (!sectionSeen) {
            lines.push_back(section);
            lines.push_back(key + "=" + value);
        } else {
            lines.insert(lines.begin() + static_cast<long>(inSection ? lines.size() : sectionEnd),
                         key + "=" + value);
        }
    }
    std::ostringstream out;
    for (const auto &line : lines)
        out << line << '\n';
    return write_file(file, out.str());
}

} // namespace qavpkg::util
