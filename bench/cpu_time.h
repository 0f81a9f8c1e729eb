// The CPU time this process has used so far (user and system), in seconds: what the benchmarks
// measure work and idleness by.
#pragma once

#include <sys/resource.h>

inline double processCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}
