// Fault injection: `zakhost.inject(service, result, skip, count)` makes the named host service
// fail `count` times after `skip` more successful calls.
// Sweep runs: `qavlua sweep` starts one process per run and tells it through the environment
// which call to fail or where to cut the power; the run reports back through a record file.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
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

// What the sweep asked of this run, read once.
struct SweepPlan {
    std::string record;     // device path of the record file, "" for none
    bool faults = false;    // ZAKHOST_FAULT_PLAN given
    uint64_t fail_call = 0; // 1-based call to fail; 0 records the calls only
    bool cuts = false;      // ZAKHOST_CUT_AT given
    uint64_t cut_at = 0;    // 1-based cut point; 0 records the cut points only
};

uint64_t env_number(const char *name, bool *given) {
    const char *text = std::getenv(name);
    *given = text != nullptr && *text != '\0';
    return *given ? std::strtoull(text, nullptr, 10) : 0;
}

const SweepPlan &plan() {
    static const SweepPlan loaded = [] {
        SweepPlan p;
        const char *record = std::getenv("ZAKHOST_RECORD");
        if (record != nullptr) p.record = record;
        p.fail_call = env_number("ZAKHOST_FAULT_PLAN", &p.faults);
        p.cut_at = env_number("ZAKHOST_CUT_AT", &p.cuts);
        return p;
    }();
    return loaded;
}
std::mutex g_sweepLock;
std::atomic<bool> g_counting{false}; // armed and a fault plan is set
bool g_armed = false;
uint64_t g_calls = 0;
uint64_t g_cuts = 0;
std::string g_call; // the library call in progress
std::mutex g_recordLock;
int g_recordFd = -1;

bool sweep_fault(const char *service) {
    std::lock_guard lock(g_sweepLock);
    if (!g_armed) return false;
    uint64_t k = ++g_calls;
    if (plan().fail_call == 0) {
        sweep_record("call " + std::to_string(k) + " " + service);
        return false;
    }
    if (k != plan().fail_call) return false;
    sweep_record("fault " + std::to_string(k) + " " + service);
    return true;
}

} // namespace

bool injected(const char *service, int64_t *result) {
    // A planned failure leaves `result` as the caller set it: the service's general failure.
    if (g_counting.load(std::memory_order_relaxed) && sweep_fault(service)) return true;
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

bool cut_plan_set() {
    return plan().cuts;
}

void sweep_arm(bool armed) {
    std::lock_guard lock(g_sweepLock);
    g_armed = armed;
    g_counting.store(armed && plan().faults, std::memory_order_relaxed);
}

void sweep_record(std::string_view line) {
    if (plan().record.empty()) return;
    std::lock_guard lock(g_recordLock);
    // The root is known only once the runner has set it, so the file opens on first use.
    if (g_recordFd < 0)
        g_recordFd = open(in_root(plan().record).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (g_recordFd < 0) return;
    std::string text(line);
    text += '\n';
    ssize_t written = write(g_recordFd, text.data(), text.size());
    (void)written; // the driver notices a short record as a missing line
}

void cut_point(std::string_view what) {
    if (!plan().cuts) return;
    std::lock_guard lock(g_sweepLock);
    if (!g_armed) return;
    uint64_t k = ++g_cuts;
    if (plan().cut_at == 0) {
        sweep_record("cut " + std::to_string(k) + " " + std::string(what));
    } else if (k == plan().cut_at) {
        sweep_record("power-cut " + std::to_string(k) + " " + std::string(what));
        // A power cut: no handler, no flush, no clean-up runs.
        kill(getpid(), SIGKILL);
        _exit(128 + SIGKILL); // only reached where SIGKILL to oneself is refused
    }
}

void cut_context(std::string call) {
    if (!plan().cuts) return;
    std::lock_guard lock(g_sweepLock);
    g_call = std::move(call);
}

void cut_point_in_call(std::string_view what) {
    std::string label;
    {
        std::lock_guard lock(g_sweepLock);
        if (g_call.empty()) return;
        label = g_call + ": " + std::string(what);
    }
    cut_point(label);
}

} // namespace zakhost
