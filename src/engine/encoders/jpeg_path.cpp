#include "engine/encoders/jpeg_path.h"

#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/encoders/candidate_runner.h"
#include "engine/encoders/pnm_writer.h"
#include "engine/encoders/quality_scale.h"
#include "engine/encoders/tool_runner.h"
#include "engine/install/file_operations.h"

namespace velt {

std::vector<EncoderCandidate> jpegCandidates(const QString& baseName, const QString& directory,
                                             const QString& inputURL,
                                             const std::optional<QString>& icc,
                                             int qualitySetting) {
    EncoderCandidate candidate;
    candidate.url = temporarySibling(directory, baseName, QStringLiteral("-mozjpeg-default-"),
                                     QStringLiteral("jpg"));
    if (icc) candidate.arguments << QStringLiteral("-icc") << *icc;
    candidate.arguments << QStringLiteral("-quality")
                        << QString::number(encoderQuality(ImageFormat::jpeg, qualitySetting))
                        << QStringLiteral("-progressive") << QStringLiteral("-optimize")
                        << QStringLiteral("-sample") << QStringLiteral("2x2")
                        << QStringLiteral("-outfile") << candidate.url << inputURL;
    return {candidate};
}

void writeJPEGImage(EncodingContext& context, const QString& destination, ImagePlan& plan,
                    const ToolLocator& locateTool, const CandidateFinish& finish) {
    const std::optional<QString> cjpeg = locateTool(QStringLiteral("cjpeg"));
    if (!cjpeg)
        throw FileSystemError(
            FileSystemError::writeUnsupportedScheme,
            QStringLiteral("The JPEG encoder \"cjpeg\" is not installed"),
            Message{Text::encoderMissing,
                    {QStringLiteral("cjpeg"), QStringLiteral("libjpeg-turbo-progs")}});

    checkRenderable(plan.image);  // before anything is written
    const ToolLimits limits =
        toolLimitsFor(static_cast<std::int64_t>(plan.image.width) * plan.image.height);
    const QString directory = workDirectory(context, destination);
    const QString base = baseNameOf(destination);
    TemporaryFiles cleanup;
    const std::optional<QString> profile =
        writeProfileSideFile(directory, base, plan.iccData, cleanup);

    const auto candidates =
        jpegCandidates(base, directory, jpegStandardInput, profile, context.config.qualities.jpeg);
    const QStringList results =
        runCandidates(candidates, cleanup, [&](const EncoderCandidate& candidate) {
            // JPEG has no alpha: the raster goes in flattened onto white.
            runTool(*cjpeg, candidate.arguments, context.lifecycle, limits,
                    pnmChunks(plan.image, false));
            if (&candidate == &candidates.back()) imageio::releasePixels(plan.image);
            finishCandidate(finish, candidate.url, plan);
            return candidate.url;
        });
    installSmallest(results, destination);
}

}  // namespace velt
