// Helpers the host cipher, password and master-key services share.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zakhost_crypt {

// Standard base64 with padding, no line breaks.
size_t Base64Length(size_t bytes);
std::string Base64Encode(const unsigned char *data, size_t len);
// False for a text that is not canonical padded base64.
bool Base64Decode(std::string_view text, std::vector<unsigned char> &out);

} // namespace zakhost_crypt
