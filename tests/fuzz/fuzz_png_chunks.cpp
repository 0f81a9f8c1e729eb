// The PNG chunk rewriting and the zlib stream behind the iCCP chunk: the first byte splits the
// input into a PNG and a profile.
#include "engine/core/errors.h"
#include "engine/encoders/png_chunks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t split = std::min<std::size_t>(data[0] * 16u, size - 1);
    const QByteArray png(reinterpret_cast<const char*>(data + 1), static_cast<qsizetype>(split));
    const QByteArray profile(reinterpret_cast<const char*>(data + 1 + split),
                             static_cast<qsizetype>(size - 1 - split));
    if (const auto rewritten = velt::pngWithICCProfile(png, profile)) {
        if (!rewritten->startsWith("\x89PNG")) __builtin_trap();
    }
    try {
        velt::zlibCompressedData(profile);
    } catch (const velt::FileSystemError&) {
    }
    return 0;
}
