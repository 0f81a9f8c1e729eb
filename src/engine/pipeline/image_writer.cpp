#include "engine/pipeline/image_writer.h"

#include "engine/core/image_safety.h"
#include "engine/encoders/builtin_encoder.h"
#include "engine/encoders/jpeg_path.h"
#include "engine/encoders/png_path.h"
#include "engine/encoders/quality_scale.h"
#include "engine/encoders/tool_runner.h"
#include "engine/encoders/webp_path.h"
#include "engine/pipeline/carry_metadata.h"

namespace velt {
namespace {

// The encoding path of the plan's target; each one leaves a decodable file of the right size.
void encodeWithPathOfTarget(EngineContext& context, const QString& sourceURL,
                            const QString& destination, const ImagePlan& plan) {
    switch (plan.target) {
        case ImageFormat::webp:
            writeWebPImage(context, destination, plan);
            return;
        case ImageFormat::png:
            writePNGImage(context, sourceURL, destination, plan);
            return;
        case ImageFormat::jpeg:
            if (toolURL(QStringLiteral("cjpeg"))) {
                writeJPEGImage(context, destination, plan);
                return;
            }
            break;
        case ImageFormat::avif:
        case ImageFormat::heic:
            break;
    }
    writeImageWithImageIO(destination, plan.image, plan.target, context.config.qualities,
                          plan.metadata);
    // The tool paths check for a stop themselves; the built-in encoder cannot be interrupted.
    context.checkpoint();
    // The tool paths decode what they wrote; the built-in encoders' output is checked here.
    validateEncodedImage(destination, expectedOutputSize(plan.image));
}

}  // namespace

void writeImage(EngineContext& context, const QString& sourceURL, const QString& destination,
                const ImagePlan& plan) {
    context.checkpoint();
    encodeWithPathOfTarget(context, sourceURL, destination, plan);
    writeMetadataInto(destination, sourceURL, plan);
}

}  // namespace velt
