// Fault injection: `zakhost.inject(service, result, skip, count)` makes the named host service
// fail `count` times after `skip` more successful calls.
#include <atomic>
#include <map>
#include <mutex>

#include "host.h"

namespace zakhost {
namespace {

struct Injection {
    int64_t result;
    uint32_t skip;
    uint32_t count;
};

std::mutex g_lock;
std::map<std::string, Injection, std::less<>> g_injections;
std::atomic<bool> g_any{false};

} // namespace

bool injected(const char *service, int64_t *result) {
    if (!g_any.load(std::memory_order_acquire)) return false;
    std::lock_guard lock(g_lock);
    auto it = g_injections.find(std::string_view(service));
    if (it == g_injections.end()) return false;
    Injection &inj = it->second;
    if (inj.skip > 0) {
        --inj.skip;
        return false;
    }
    if (result != nullptr) *result = inj.result;
    if (--inj.count == 0) g_injections.erase(it);
    g_any.store(!g_injections.empty(), std::memory_order_release);
    return true;
}

void inject(const std::string &service, int64_t result, uint32_t skip, uint32_t count) {
    std::lock_guard lock(g_lock);
    if (count == 0) {
        g_injections.erase(service);
    } else {
        g_injections[service] = Injection{result, skip, count};
    }
    g_any.store(!g_injections.empty(), std::memory_order_release);
}

void inject_clear() {
    std::lock_guard lock(g_lock);
    g_injections.clear();
    g_any.store(false, std::memory_order_release);
}

} // namespace zakhost
