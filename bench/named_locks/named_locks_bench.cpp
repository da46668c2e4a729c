// Prints, for one run on this machine:
//  - the cost of a named-lock lock/unlock pair taken by two threads in turn, as a ratio to a raw
//    pthread mutex pair measured the same way (through the C record and through script calls);
//  - the time of a TPM report-table set of N entries given in key order and in random order, as
//    ratios to the key-order set of 10,000 entries (key order must stay linear: twice the
//    entries, about twice the time);
//  - the named lock's take and release on bare glibc primitives, as the floor of its algorithm.
// The lock figures are medians of several rounds, with the spread of the round ratios, so that one
// round disturbed by other work on the machine does not decide.
// usage: bench_named_locks [ROUNDS (default 9)] [PAIRS per round (default 200,000)]
#include <pthread.h>
#include <semaphore.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <thread>
#include <string>
#include <vector>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include "../common/bench_row.h"
#include "state/named_locks.h"

extern "C" int luaopen_libqavluacommon(lua_State *state);

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

// Two threads each take and release the lock `pairs` times; nanoseconds per pair.
template <typename Lock, typename Unlock> double PairNs(int pairs, Lock lock, Unlock unlock) {
    std::atomic<int> ready{0};
    auto body = [&] {
        ready++;
        while (ready.load() < 2)
            ;
        for (int i = 0; i < pairs; ++i) {
            lock();
            unlock();
        }
    };
    auto start = Clock::now();
    std::thread a(body), b(body);
    a.join();
    b.join();
    return Seconds(Clock::now() - start) * 1e9 / (2.0 * pairs);
}

lua_State *OpenState() {
    lua_State *state = luaL_newstate();
    luaL_openlibs(state);
    luaL_requiref(state, "libqavluacommon", luaopen_libqavluacommon, 1);
    lua_pop(state, 1);
    return state;
}

// Calls libqavluacommon[name]() in `state`.
void CallScript(lua_State *state, const char *name) {
    lua_getglobal(state, "libqavluacommon");
    lua_getfield(state, -1, name);
    lua_call(state, 0, 1);
    lua_pop(state, 2);
}

double ScriptPairNs(int pairs) {
    lua_State *states[2] = {OpenState(), OpenState()};
    std::atomic<int> ready{0};
    auto body = [&](lua_State *state) {
        ready++;
        while (ready.load() < 2)
            ;
        for (int i = 0; i < pairs; ++i) {
            CallScript(state, "qav_download_lock_Lock");
            CallScript(state, "qav_download_lock_Unlock");
        }
    };
    auto start = Clock::now();
    std::thread a(body, states[0]), b(body, states[1]);
    a.join();
    b.join();
    double ns = Seconds(Clock::now() - start) * 1e9 / (2.0 * pairs);
    lua_close(states[0]);
    lua_close(states[1]);
    return ns;
}

// Builds the entries table for keys (k / 100, k % 100) in the given order and times one set.
double TpmSetSeconds(lua_State *state, const std::vector<int> &order) {
    lua_getglobal(state, "libqavluacommon");
    lua_getfield(state, -1, "qav_tpm_set_report_table");
    lua_createtable(state, static_cast<int>(order.size()), 0);
    for (size_t i = 0; i < order.size(); ++i) {
        lua_createtable(state, 3, 0);
        int items[3][2] = {{1, order[i] / 100}, {2, order[i] % 100}, {7, order[i]}};
        for (int k = 0; k < 3; ++k) {
            lua_createtable(state, 0, 2);
            lua_pushinteger(state, items[k][0]);
            lua_setfield(state, -2, "fid");
            lua_pushinteger(state, items[k][1]);
            lua_setfield(state, -2, "value");
            lua_rawseti(state, -2, k + 1);
        }
        lua_rawseti(state, -2, static_cast<lua_Integer>(i + 1));
    }
    auto start = Clock::now();
    lua_call(state, 1, 1);
    double seconds = Seconds(Clock::now() - start);
    lua_pop(state, 2);
    return seconds;
}

// Best of three fresh sets (each starting from an empty table).
double BestTpmSet(lua_State *state, const std::vector<int> &order) {
    double best = 1e9;
    for (int run = 0; run < 3; ++run) {
        TpmSetSeconds(state, {});
        best = std::min(best, TpmSetSeconds(state, order));
    }
    return best;
}

// The named lock's take and release on bare glibc primitives (no handles, no fault injection, no
// error checks; the same short spin before a wait sleeps): what no host can go below.
struct BareNamedLock {
    sem_t sem;
    pthread_mutex_t record = PTHREAD_MUTEX_INITIALIZER;
    int count = 0;
    BareNamedLock() { sem_init(&sem, 0, 1); }
    void Lock() {
        for (int spin = 0; sem_trywait(&sem) != 0; ++spin) {
            if (spin == 100) {
                sem_wait(&sem);
                break;
            }
#if defined(__x86_64__) || defined(__i386__)
            __builtin_ia32_pause();
#endif
        }
        pthread_mutex_lock(&record);
        count++;
        pthread_mutex_unlock(&record);
    }
    void Unlock() {
        pthread_mutex_lock(&record);
        if (count > 0) {
            count--;
            sem_post(&sem);
        }
        pthread_mutex_unlock(&record);
    }
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// "median X ns vs Y ns; N rounds, ratios A-B"
std::string Spread(const std::vector<double> &ns, const std::vector<double> &base,
                   const std::vector<double> &ratios) {
    char text[160];
    auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
    std::snprintf(text, sizeof text, "median %.1f ns vs %.1f ns; %zu rounds, ratios %.2f-%.2f", Median(ns),
                  Median(base), ratios.size(), *low, *high);
    return text;
}

} // namespace

int main(int argc, char **argv) {
    int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 9;
    int pairs = argc > 2 ? std::max(1000, std::atoi(argv[2])) : 200000;
    lua_State *state = OpenState();
    luaL_dostring(state, "assert(libqavluacommon.qav_download_lock_init() == 0)");

    pthread_mutex_t raw = PTHREAD_MUTEX_INITIALIZER;
    QavCommLock *lock = &g_stDownLoadLockTable.lock;
    BareNamedLock bare;
    std::vector<double> rawNs, namedNs, scriptNs, bareNs, namedRatio, scriptRatio, bareRatio;
    for (int r = 0; r < rounds; ++r) {
        rawNs.push_back(PairNs(
            pairs, [&] { pthread_mutex_lock(&raw); }, [&] { pthread_mutex_unlock(&raw); }));
        namedNs.push_back(PairNs(
            pairs, [&] { QAV_LuaCommLock(lock); }, [&] { QAV_LuaCommUnLock(lock); }));
        scriptNs.push_back(ScriptPairNs(pairs / 4));
        bareNs.push_back(PairNs(
            pairs, [&] { bare.Lock(); }, [&] { bare.Unlock(); }));
        namedRatio.push_back(namedNs.back() / rawNs.back());
        bareRatio.push_back(bareNs.back() / rawNs.back());
        scriptRatio.push_back(scriptNs.back() / rawNs.back());
        std::printf("round %d: pthread pair %.1f ns, named lock pair %.1f ns (%.2f), script pair %.1f ns "
                    "(%.2f), bare %.1f "
                    "ns (%.2f)\n",
                    r + 1, rawNs.back(), namedNs.back(), namedRatio.back(), scriptNs.back(),
                    scriptRatio.back(), bareNs.back(), bareRatio.back());
    }
    BenchRow("named-lock lock/unlock pair across two threads", "pthread mutex pair", "<= 3",
             Median(namedRatio), Spread(namedNs, rawNs, namedRatio).c_str());
    BenchRow("script lock/unlock calls, two states on two threads", "pthread mutex pair", "-",
             Median(scriptRatio), Spread(scriptNs, rawNs, scriptRatio).c_str());
    BenchRow("the named-lock pair on bare sem_t and pthread mutex (the floor)", "pthread mutex pair", "-",
             Median(bareRatio), Spread(bareNs, rawNs, bareRatio).c_str());

    std::vector<int> sorted10(10000), sorted20(20000);
    std::iota(sorted10.begin(), sorted10.end(), 0);
    std::iota(sorted20.begin(), sorted20.end(), 0);
    std::vector<int> random10 = sorted10;
    std::shuffle(random10.begin(), random10.end(), std::mt19937(42));
    std::vector<int> reversed10(sorted10.rbegin(), sorted10.rend());

    double base = BestTpmSet(state, sorted10);
    double again = 1e9;
    for (int run = 0; run < 3; ++run)
        again = std::min(again, TpmSetSeconds(state, sorted10)); // same keys: every node reused
    double doubled = BestTpmSet(state, sorted20);
    double random = BestTpmSet(state, random10);
    double reversed = BestTpmSet(state, reversed10);
    auto row = [base](const char *work, const char *target, double seconds) {
        char figures[96];
        std::snprintf(figures, sizeof figures, "%.2f ms vs %.2f ms; best of 3", seconds * 1e3, base * 1e3);
        BenchRow(work, "10,000 in key order into an empty table", target, seconds / base, figures);
    };
    row("TPM set, 10,000 in key order over the same keys", "-", again);
    row("TPM set, 20,000 in key order (linear: about 2)", "<= 2.5", doubled);
    row("TPM set, 10,000 in random order", "-", random);
    row("TPM set, 10,000 in reverse key order", "-", reversed);
    lua_close(state);
    return 0;
}
