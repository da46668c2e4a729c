// Soak of the host's mutex and semaphore handles far beyond their 2^20 slots, then a full table.
// usage: sync_soak [pairs (default 10,000,000)]
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "nuk_sync.h"

namespace {

int g_failures = 0;

void Check(bool ok, const char *what, long at) {
    if (ok) return;
    if (++g_failures <= 10) std::fprintf(stderr, "FAIL at %ld: %s\n", at, what);
}

} // namespace

int main(int argc, char **argv) {
    long pairs = argc > 1 ? std::atol(argv[1]) : 10000000;
    std::vector<uint32_t> staleMutexes, staleSemas;
    for (long i = 0; i < pairs; ++i) {
        uint32_t m = 0, s = 0;
        Check(NUK_MutexInit(&m, 0) == 0 && m != 0, "mutex creation", i);
        Check(NUK_MutexLock(m) == 0 && NUK_MutexUnlock(m) == 0, "new mutex works", i);
        Check(NUK_MutexDestroy(m) == 0, "mutex destroy", i);
        Check(NUK_SemaCreate("soak", 0, 0, &s) == 0 && s != 0, "semaphore creation", i);
        Check(NUK_SemaV(s) == 0 && NUK_SemaP(s, 0) == 0 && NUK_SemaP(s, 0) == NUK_SEMA_TIMEOUT,
              "new semaphore counts from its own start", i);
        Check(NUK_SemaDelete(s) == 0, "semaphore delete", i);
        if (i % 997 == 0 && staleMutexes.size() < 4096) {
            staleMutexes.push_back(m);
            staleSemas.push_back(s);
        }
        if (i % 100003 == 0) {
            for (uint32_t stale : staleMutexes)
                Check(NUK_MutexLock(stale) != 0 && NUK_MutexDestroy(stale) != 0, "stale mutex refused", i);
            for (uint32_t stale : staleSemas)
                Check(NUK_SemaV(stale) != 0 && NUK_SemaDelete(stale) != 0, "stale semaphore refused", i);
        }
    }

    std::vector<uint32_t> live;
    uint32_t m = 0;
    while (NUK_MutexInit(&m, 0) == 0)
        live.push_back(m);
    Check(live.size() >= (1u << 20) - 2, "the table holds 2^20 - 1 mutexes", static_cast<long>(live.size()));
    size_t heap = mallinfo2().uordblks;
    for (int i = 0; i < 100000; ++i)
        Check(NUK_MutexInit(&m, 0) != 0, "creation fails in a full table", i);
    Check(mallinfo2().uordblks <= heap + 65536, "failed creations allocate nothing", 0);
    for (uint32_t handle : live)
        Check(NUK_MutexDestroy(handle) == 0, "destroy in a full table", 0);
    Check(NUK_MutexInit(&m, 0) == 0 && NUK_MutexLock(m) == 0, "creation after the table emptied", 0);

    std::printf("%ld create/destroy pairs of each kind, %zu handles live at most, %d failures\n", pairs,
                live.size(), g_failures);
    return g_failures == 0 ? 0 : 1;
}
