#include "crypt/crypt_common.h"

#include <openssl/evp.h>

namespace zakhost_crypt {

size_t Base64Length(size_t bytes) {
    return (bytes + 2) / 3 * 4;
}

std::string Base64Encode(const unsigned char *data, size_t len) {
    std::string text(Base64Length(len) + 1, '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()), data, static_cast<int>(len));
    text.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return text;
}

bool Base64Decode(std::string_view text, std::vector<unsigned char> &out) {
    if (text.empty() || text.size() % 4 != 0) return false;
    size_t pad = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        bool alnum = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
                     c == '/';
        if (c == '=') {
            if (i + 2 < text.size()) return false;
            ++pad;
        } else if (!alnum || pad > 0) {
            return false;
        }
    }
    out.assign(text.size() / 4 * 3, 0);
    int n = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char *>(text.data()),
                            static_cast<int>(text.size()));
    if (n < 0) return false;
    out.resize(static_cast<size_t>(n) - pad);
    // Only the canonical text of these bytes is accepted, so a cipher text has one spelling.
    return Base64Encode(out.data(), out.size()) == text;
}

} // namespace zakhost_crypt
