// The first-frame decoders of every format (chosen by sniffing) and the cheap verification.
#include "fuzz_input_file.h"
#include "imageio/image_io.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velt::imageio;
    const QString path = velt::fuzzing::inputFile(data, size, "img");
    try {
        const Bitmap bitmap = decodeFirstFrame(path);
        if (bitmap.rgba.size() != bitmap.rowBytes() * static_cast<std::size_t>(bitmap.height))
            __builtin_trap();
    } catch (const ImageIOError&) {
    }
    try {
        verifyFirstFrameDecodes(path);
    } catch (const ImageIOError&) {
    }
    return 0;
}
