// One result row for bench/run_all.sh: the work measured, its baseline, the target (for example
// "<= 1.6", or "-" for none), the ratio to the baseline and the absolute figures behind it.
// The driver collects these lines into one table; everything else a benchmark prints is its own
// detail.
#pragma once

#include <cstdio>

inline void BenchRow(const char *work, const char *baseline, const char *target, double ratio,
                     const char *figures) {
    std::printf("BENCH\t%s\t%s\t%s\t%.2f\t%s\n", work, baseline, target, ratio, figures);
    std::fflush(stdout);
}
