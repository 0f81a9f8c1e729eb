#include "platform/batch_memory.h"

#include <cstdlib>  // defines __GLIBC__ where it applies
#include <fstream>
#include <limits>
#include <string>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace velt {

void keepFreedMemoryForReuse() {
#if defined(__GLIBC__)
    // Large blocks would otherwise be mapped afresh and unmapped on every free; one arena lets
    // a worker reuse what another freed; the heap shrinks only when a
    // gigabyte lies free at its top.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
#endif
}

std::int64_t availableMemoryBytes() {
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    long long kibibytes = 0;
    // Lines of "Name:   value kB".
    while (meminfo >> key >> kibibytes) {
        if (key == "MemAvailable:") return kibibytes > 0 ? kibibytes * 1024 : 0;
        meminfo.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return 0;
}

}  // namespace velt
