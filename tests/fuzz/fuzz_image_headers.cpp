// Header readers: format sniffing, pixel size, animation. Any input must end in a
// value or an ImageIOError, never a crash, a hang or a large allocation.
#include "fuzz_input_file.h"
#include "imageio/image_io.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velt::imageio;
    sniffFormat(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    const QString path = velt::fuzzing::inputFile(data, size, "img");
    try {
        readProperties(path);
    } catch (const ImageIOError&) {
    }
    try {
        isAnimated(path);
    } catch (const ImageIOError&) {
    }
    return 0;
}
