// File digests: SHA-256 through OpenSSL's EVP interface, read in large sequential blocks.
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "nuk_digest.h"
#include "host.h"

namespace {

constexpr size_t kBlock = 1 << 20;
constexpr uint32_t kHexLength = 64;

struct MdFree {
    void operator()(EVP_MD_CTX *ctx) const { EVP_MD_CTX_free(ctx); }
};

bool digest_file(int fd, unsigned char *digest) {
    std::unique_ptr<EVP_MD_CTX, MdFree> ctx(EVP_MD_CTX_new());
    if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr) != 1) return false;
    (void)posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    static thread_local std::vector<unsigned char> buffer(kBlock);
    for (;;) {
        ssize_t n = read(fd, buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) break;
        if (EVP_DigestUpdate(ctx.get(), buffer.data(), static_cast<size_t>(n)) != 1) return false;
    }
    unsigned int length = 0;
    return EVP_DigestFinal_ex(ctx.get(), digest, &length) == 1 && length == 32;
}

} // namespace

extern "C" uint32_t NUK_Crypt_Digest_Ex_HOOK(const char *path, char *out, uint32_t *length) {
    if (uint32_t code = 0; zakhost::injected_code("NUK_Crypt_Digest_Ex_HOOK", &code)) return code;
    if (path == nullptr || out == nullptr || length == nullptr || *length < kHexLength) return 1;
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 2;
    unsigned char digest[32];
    bool ok = digest_file(fd, digest);
    close(fd);
    if (!ok) return 3;
    static const char kHex[] = "0123456789abcdef";
    for (int i = 0; i < 32; ++i) {
        out[2 * i] = kHex[digest[i] >> 4];
        out[2 * i + 1] = kHex[digest[i] & 0xF];
    }
    if (*length > kHexLength) out[kHexLength] = '\0';
    *length = kHexLength;
    return 0;
}
