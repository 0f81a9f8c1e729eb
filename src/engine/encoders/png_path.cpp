#include "engine/encoders/png_path.h"

#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/encoders/builtin_encoder.h"
#include "engine/encoders/png_chunks.h"
#include "engine/encoders/quality_scale.h"
#include "engine/encoders/tool_runner.h"
#include "engine/install/file_operations.h"
#include "model/native_log.h"

#include <functional>

namespace velt {
namespace {

constexpr std::int64_t maximumOxipngPixels = 12'000'000;

// Runs one optional optimization step that writes `path`. Returns whether it produced a
// candidate; a stop is passed on, any other failure removes the file and is handed to `onFailure`.
bool tryCandidate(const QString& path, const std::function<void()>& produce,
                  const std::function<void(const std::exception&)>& onFailure) {
    try {
        produce();
        return true;
    } catch (const FolderCompressorControlError&) {
        throw;
    } catch (const std::exception& error) {
        removeQuietly(path);
        onFailure(error);
        return false;
    }
}

// A PNG source is its own lossless baseline (its depth and palette stay), without its metadata
// chunks; one whose pixels were turned upright is encoded from the plan like any other source.
void writeBaseline(EncodingContext& context, const QString& sourceURL, const QString& baseline,
                   const ImagePlan& plan) {
    if (plan.source == ImageFormat::png && !plan.turned) {
        copyToNewFile(sourceURL, baseline);
        removeMetadataFromPNG(baseline);
    } else {
        writeImageWithImageIO(baseline, plan.image, ImageFormat::png, context.config.qualities);
    }
    attachICCProfileToPNGIfNeeded(baseline, plan.iccData);
}

}  // namespace

QStringList oxipngArguments(const QString& path) {
    return {QStringLiteral("-q"),      QStringLiteral("-o"),   QStringLiteral("4"),
            QStringLiteral("--strip"), QStringLiteral("safe"), path};
}

QStringList pngquantArguments(int qualitySetting, const QString& input, const QString& output) {
    const int maximum = encoderQuality(ImageFormat::png, qualitySetting);
    const int minimum = maximum < 20 ? 0 : maximum - 20;
    return {QStringLiteral("--force"),
            QStringLiteral("--skip-if-larger"),
            QStringLiteral("--quality"),
            QString::number(minimum) + QLatin1Char('-') + QString::number(maximum),
            QStringLiteral("--speed"),
            QStringLiteral("3"),
            QStringLiteral("--output"),
            output,
            input};
}

void writePNGImage(EncodingContext& context, const QString& sourceURL, const QString& destination,
                   ImagePlan& plan, const ToolLocator& locateTool, const CandidateFinish& finish) {
    const QString directory = workDirectory(context, destination);
    const QString base = baseNameOf(destination);
    const auto sibling = [&](const char* infix) {
        return temporarySibling(directory, base, QString::fromUtf8(infix), QStringLiteral("png"));
    };
    TemporaryFiles cleanup;
    const QString baseline = cleanup.add(sibling("-png-source-"));
    writeBaseline(context, sourceURL, baseline, plan);
    imageio::releasePixels(plan.image);
    QStringList candidates = {baseline};

    const std::int64_t pixels = static_cast<std::int64_t>(plan.image.width) * plan.image.height;
    const ToolLimits limits = toolLimitsFor(pixels);
    std::optional<QString> oxipng = locateTool(QStringLiteral("oxipng"));
    // oxipng's exhaustive search grows with the picture: minutes for a large one, for a few
    // per cent. Above this size the lossless candidate is the baseline alone.
    if (oxipng && pixels > maximumOxipngPixels) {
        NativeLog::debug(
            QStringLiteral("oxipng skipped for a large image (%1 pixels)").arg(pixels));
        oxipng.reset();
    }
    if (oxipng) {
        const QString lossless = cleanup.add(sibling("-oxipng-"));
        const bool made = tryCandidate(
            lossless,
            [&] {
                copyToNewFile(baseline, lossless);
                runTool(*oxipng, oxipngArguments(lossless), context.lifecycle, limits);
                attachICCProfileToPNGIfNeeded(lossless, plan.iccData);
                validateTemporaryFile(lossless);
            },
            [](const std::exception&) {});
        if (made) candidates.append(lossless);
    }

    if (const std::optional<QString> pngquant = locateTool(QStringLiteral("pngquant"))) {
        const QString quantized = cleanup.add(sibling("-pngquant-"));
        const bool made = tryCandidate(
            quantized,
            [&] {
                runTool(*pngquant,
                        pngquantArguments(context.config.qualities.png, baseline, quantized),
                        context.lifecycle, limits);
                if (oxipng) runTool(*oxipng, oxipngArguments(quantized), context.lifecycle, limits);
                attachICCProfileToPNGIfNeeded(quantized, plan.iccData);
                validateTemporaryFile(quantized);
            },
            [](const std::exception& error) {
                NativeLog::debug(QStringLiteral("Optional PNG optimization failed: ") +
                                 errorDescription(error));
            });
        if (made) candidates.append(quantized);
    }

    if (candidates.isEmpty())
        throw FileSystemError(FileSystemError::writeUnknown,
                              QStringLiteral("No PNG candidate for ") + destination,
                              Message{Text::encodingFailed, {}});
    moveOverDestination(smallestFile(candidates), destination);
    // Whichever candidate won, the file that may replace an original must decode.
    finishCandidate(finish, destination, plan);
}

}  // namespace velt
