#include "engine/pipeline/image_writer.h"

#include "engine/encoders/builtin_encoder.h"
#include "engine/encoders/jpeg_path.h"
#include "engine/encoders/png_path.h"
#include "engine/encoders/tool_runner.h"
#include "engine/encoders/webp_path.h"
#include "engine/pipeline/carry_metadata.h"

#include <utility>

namespace velt {

void writeImage(EngineContext& context, const QString& sourceURL, const QString& destination,
                ImagePlan& plan) {
    context.checkpoint();
    // Every output is decoded once, after its metadata is in: a tool path's candidates here, the
    // built-in encoder's file below.
    const CandidateFinish finish = [&](const QString& file) {
        finishEncodedImage(file, sourceURL, plan);
    };
    switch (plan.target) {
        case ImageFormat::webp:
            writeWebPImage(context, destination, plan, systemToolLocator(), finish);
            return;
        case ImageFormat::png:
            writePNGImage(context, sourceURL, destination, plan, systemToolLocator(), finish);
            return;
        case ImageFormat::jpeg:
            if (toolURL(QStringLiteral("cjpeg"))) {
                writeJPEGImage(context, destination, plan, systemToolLocator(), finish);
                return;
            }
            break;
        case ImageFormat::avif:
        case ImageFormat::heic:
            break;
    }
    // The pixels go to the encoder, which frees them once it holds its own copy (HEIC, AVIF);
    // the plan keeps the image's size, which the output is checked against.
    imageio::Bitmap raster = std::move(plan.image);
    plan.image = {raster.width, raster.height, {}, raster.alphaInfo, raster.colorSpace};
    writeImageWithImageIO(destination, std::move(raster), plan.target, context.config.qualities,
                          plan.metadata);
    // The tool paths check for a stop themselves; the built-in encoder cannot be interrupted.
    context.checkpoint();
    finish(destination);
}

}  // namespace velt
