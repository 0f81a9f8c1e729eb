#include "engine/encoders/webp_path.h"

#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/encoders/candidate_runner.h"
#include "engine/encoders/pnm_writer.h"
#include "engine/encoders/quality_scale.h"
#include "engine/encoders/tool_runner.h"
#include "engine/install/file_operations.h"

#include <algorithm>

namespace velt {
namespace {

struct WebPPresetArguments {
    QString label;
    QStringList preset;
    QStringList method;
};

WebPPresetArguments webPPresetArguments(CompressionPreset preset) {
    const QStringList method = {QStringLiteral("-m"), QStringLiteral("3"), QStringLiteral("-mt")};
    switch (preset) {
        case CompressionPreset::gentle:
            return {QStringLiteral("photo"),
                    {QStringLiteral("-preset"), QStringLiteral("photo")},
                    method};
        case CompressionPreset::maximum:
            return {QStringLiteral("sharp"),
                    {},
                    {QStringLiteral("-m"), QStringLiteral("4"), QStringLiteral("-mt"),
                     QStringLiteral("-sharp_yuv")}};
        case CompressionPreset::balanced:
        case CompressionPreset::jpegCompatible:
        case CompressionPreset::custom:
            break;
    }
    return {QStringLiteral("default"), {}, method};
}

}  // namespace

QString webPIntermediateURL(const QString& directory, const QString& base, bool hasAlpha) {
    return temporarySibling(directory, base, QStringLiteral("-webp-source-"),
                            hasAlpha ? QStringLiteral("pam") : QStringLiteral("ppm"));
}

std::vector<EncoderCandidate> webPCandidates(const QString& baseName, const QString& directory,
                                             const QString& inputURL, bool hasAlpha,
                                             CompressionPreset preset, int qualitySetting) {
    const WebPPresetArguments table = webPPresetArguments(preset);
    const int q = encoderQuality(ImageFormat::webp, qualitySetting);
    EncoderCandidate candidate;
    candidate.url = temporarySibling(directory, baseName,
                                     QStringLiteral("-cwebp-") + table.label + QLatin1Char('-'),
                                     QStringLiteral("webp"));
    candidate.arguments << table.preset << QStringLiteral("-quiet") << QStringLiteral("-q")
                        << QString::number(q) << table.method;
    if (hasAlpha) {
        // The alpha plane is never coded below 85, whatever the colour quality; above that it
        // follows the user's number (cwebp's alpha scale is not the one the table calibrates).
        const int alphaQuality = std::max(85, clampedQuality(qualitySetting));
        candidate.arguments << QStringLiteral("-alpha_q") << QString::number(alphaQuality)
                            << QStringLiteral("-alpha_filter") << QStringLiteral("best");
    }
    candidate.arguments << inputURL << QStringLiteral("-o") << candidate.url;
    return {candidate};
}

void writeWebPImage(EncodingContext& context, const QString& destination, ImagePlan& plan,
                    const ToolLocator& locateTool, const CandidateFinish& finish) {
    const std::optional<QString> cwebp = locateTool(QStringLiteral("cwebp"));
    if (!cwebp)
        throw FileSystemError(
            FileSystemError::writeUnsupportedScheme,
            QStringLiteral("The WebP encoder \"cwebp\" is not installed"),
            Message{Text::encoderMissing, {QStringLiteral("cwebp"), QStringLiteral("webp")}});

    const ToolLimits limits =
        toolLimitsFor(static_cast<std::int64_t>(plan.image.width) * plan.image.height);
    const QString directory = workDirectory(context, destination);
    const QString base = baseNameOf(destination);
    const bool hasAlpha = imageio::hasAlphaChannel(plan.image.alphaInfo);
    TemporaryFiles cleanup;
    const QString intermediate = cleanup.add(webPIntermediateURL(directory, base, hasAlpha));
    removeQuietly(intermediate);
    writePNMImage(context.lifecycle, intermediate, plan.image, hasAlpha, plan.colorSpace);
    imageio::releasePixels(plan.image);
    const std::optional<QString> profile =
        writeProfileSideFile(directory, base, plan.iccData, cleanup);

    const auto candidates = webPCandidates(base, directory, intermediate, hasAlpha,
                                           context.config.preset, context.config.qualities.webp);
    const QStringList results =
        runCandidates(candidates, cleanup, [&](const EncoderCandidate& candidate) {
            runTool(*cwebp, candidate.arguments, context.lifecycle, limits);
            const std::optional<QString> webpmux =
                profile ? locateTool(QStringLiteral("webpmux")) : std::nullopt;
            if (!webpmux) {
                finishCandidate(finish, candidate.url, plan);
                return candidate.url;
            }
            const QString embedded = cleanup.add(temporarySibling(
                directory, base, QStringLiteral("-webp-icc-"), QStringLiteral("webp")));
            runTool(*webpmux,
                    {QStringLiteral("-set"), QStringLiteral("icc"), *profile, candidate.url,
                     QStringLiteral("-o"), embedded},
                    context.lifecycle, limits);
            finishCandidate(finish, embedded, plan);
            return embedded;
        });
    installSmallest(results, destination);
}

}  // namespace velt
