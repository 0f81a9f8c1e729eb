// How the C library hands memory back during a batch run, and how much memory a batch may use.
#pragma once

#include <cstdint>

namespace velt {

// For `--once`: freed memory stays in the process for the next file instead of going back to
// the system. Every photo needs a raster and decoder buffers of about the same size; fresh pages
// from the system each time cost a page fault per 4 KB, which on large photos took more CPU than
// decoding them. Peak memory is unchanged (the largest file's); it is returned at exit.
// Does nothing where the C library has no such tuning.
void keepFreedMemoryForReuse();

// The memory the system can give to new work without swapping (MemAvailable of /proc/meminfo), in
// bytes; 0 when it cannot be read.
std::int64_t availableMemoryBytes();

}  // namespace velt
