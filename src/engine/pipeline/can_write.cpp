#include "engine/pipeline/can_write.h"

#include "engine/encoders/tool_runner.h"
#include "imageio/image_io.h"

#include <mutex>

namespace velt {

bool canWrite(ImageFormat format) {
    if (format == ImageFormat::webp) return toolURL(QStringLiteral("cwebp")).has_value();
    return isNativeWritable(format);
}

void registerImageWriterTypes() {
    static std::once_flag once;
    std::call_once(once, [] {
        // The encoders libheif was built with cannot change while the program runs.
        static const QStringList writable = imageio::writableTypeIdentifiers();
        setWritableTypeIdentifiersProvider([] { return writable; });
    });
}

}  // namespace velt
