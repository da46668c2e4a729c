// Fixed buffers that hold plain texts, cipher texts or key bytes for the length of one call. They
// start zero-filled and are overwritten with zeros when the call leaves their scope, on every path,
// after the results have been pushed (the script engine keeps its own copy of a pushed string).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "binding/script_frame.h"

namespace qav::crypt {

// Observes each buffer right after it has been wiped (name, bytes, size). Null in normal use; the
// unit tests set it to check that nothing secret is left behind.
using WipeProbe = void (*)(const char *name, const void *data, size_t size);
extern WipeProbe g_wipeProbe;

// Overwrites size bytes with zeros in a way the compiler keeps.
void Wipe(void *data, size_t size);

template <size_t N> class SecretBuffer {
  public:
    explicit SecretBuffer(const char *name) : name_(name) {}
    SecretBuffer(const SecretBuffer &) = delete;
    SecretBuffer &operator=(const SecretBuffer &) = delete;
    ~SecretBuffer() {
        Wipe(data_, N);
        if (g_wipeProbe != nullptr) g_wipeProbe(name_, data_, N);
    }
    char *chars() { return reinterpret_cast<char *>(data_); }
    uint8_t *bytes() { return data_; }
    static constexpr uint32_t size() { return N; }
    // The length of the text up to its first zero byte.
    uint32_t length() const {
        return static_cast<uint32_t>(strnlen(reinterpret_cast<const char *>(data_), N));
    }

  private:
    const char *name_;
    uint8_t data_[N] = {};
};

// Pushes buffer[0..first zero byte) as a counted string.
inline void PushText(lua_State *state, const char *buffer, uint32_t size) {
    SYSDT_SPTI_PushLString(state, buffer, static_cast<uint32_t>(strnlen(buffer, size)));
}

} // namespace qav::crypt
