#include "engine/pipeline/can_write.h"

#include "engine/encoders/tool_runner.h"

namespace velt {

bool canWrite(ImageFormat format) {
    if (format == ImageFormat::webp) return toolURL(QStringLiteral("cwebp")).has_value();
    return isNativeWritable(format);
}

}  // namespace velt
