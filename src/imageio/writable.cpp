// The list of type identifiers this build can write natively.
#include "imageio/encoders.h"
#include "imageio/image_io.h"

namespace velt::imageio {

QStringList writableTypeIdentifiers() {
    QStringList identifiers{QStringLiteral("public.jpeg"), QStringLiteral("public.png")};
    if (detail::heifCanEncode(ImageFormat::heic)) identifiers << QStringLiteral("public.heic");
    if (detail::heifCanEncode(ImageFormat::avif)) identifiers << QStringLiteral("public.avif");
    return identifiers;
}

}  // namespace velt::imageio
