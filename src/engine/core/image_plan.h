// ImagePlan: what one source will be written as.
#pragma once

#include "imageio/bitmap.h"
#include "imageio/metadata.h"
#include "model/image_format.h"

#include <QByteArray>
#include <optional>

namespace velt {

struct ImagePlan {
    ImageFormat source = ImageFormat::jpeg;
    ImageFormat target = ImageFormat::jpeg;
    imageio::Bitmap image;              // decoded, display-oriented
    imageio::ColorSpace colorSpace;     // the RGB space to encode in
    std::optional<QByteArray> iccData;  // the profile to embed, if any
    imageio::ImageMetadata metadata;    // the source's own data the output carries (policy applied)
    bool turned = false;                // the decoded pixels were turned to make `image`
};

}  // namespace velt
