// How the C library hands memory back during a batch run.
#pragma once

namespace velt {

// For `--once`: freed memory stays in the process for the next file instead of going back to
// the system. Every photo needs a raster and decoder buffers of about the same size; fresh pages
// from the system each time cost a page fault per 4 KB, which on large photos took more CPU than
// decoding them. Peak memory is unchanged (the largest file's); it is returned at exit.
// Does nothing where the C library has no such tuning.
void keepFreedMemoryForReuse();

}  // namespace velt
