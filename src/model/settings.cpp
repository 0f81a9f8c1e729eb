#include "model/settings.h"

#include "model/text_catalogue.h"

#include <QDir>

namespace velt {

int QualitySettings::quality(ImageFormat format) const {
    switch (format) {
        case ImageFormat::jpeg:
            return jpeg;
        case ImageFormat::png:
            return png;
        case ImageFormat::webp:
            return webp;
        case ImageFormat::avif:
            return avif;
        case ImageFormat::heic:
            return heic;
    }
    return jpeg;
}

QString rawValue(CompressionPreset preset) {
    switch (preset) {
        case CompressionPreset::balanced:
            return QStringLiteral("balanced");
        case CompressionPreset::gentle:
            return QStringLiteral("gentle");
        case CompressionPreset::maximum:
            return QStringLiteral("maximum");
        case CompressionPreset::jpegCompatible:
            return QStringLiteral("jpegCompatible");
        case CompressionPreset::custom:
            return QStringLiteral("custom");
    }
    return {};
}

std::optional<CompressionPreset> compressionPresetFromRawValue(const QString& raw) {
    for (CompressionPreset preset : allCompressionPresets) {
        if (rawValue(preset) == raw) return preset;
    }
    return std::nullopt;
}

QString title(CompressionPreset preset, AppLanguage language) {
    switch (preset) {
        case CompressionPreset::balanced:
            return text(language, Text::presetBalanced);
        case CompressionPreset::gentle:
            return text(language, Text::presetGentle);
        case CompressionPreset::maximum:
            return text(language, Text::presetMaximum);
        case CompressionPreset::jpegCompatible:
            return QStringLiteral("JPEG");
        case CompressionPreset::custom:
            return text(language, Text::presetCustom);
    }
    return {};
}

QualitySettings defaults(CompressionPreset preset) {
    switch (preset) {
        case CompressionPreset::balanced:
        case CompressionPreset::custom:
            return {76, 82, 78, 50, 72};
        case CompressionPreset::gentle:
            return {86, 92, 86, 62, 82};
        case CompressionPreset::maximum:
            return {64, 72, 64, 42, 60};
        case CompressionPreset::jpegCompatible:
            return {82, 82, 82, 52, 72};
    }
    return {};
}

std::vector<CompressionPreset> presetMenuCases() {
    return {CompressionPreset::balanced, CompressionPreset::gentle, CompressionPreset::maximum,
            CompressionPreset::custom};
}

QString rawValue(FormatStrategy strategy) {
    switch (strategy) {
        case FormatStrategy::automatic:
            return QStringLiteral("automatic");
        case FormatStrategy::jpeg:
            return QStringLiteral("jpeg");
        case FormatStrategy::png:
            return QStringLiteral("png");
        case FormatStrategy::webp:
            return QStringLiteral("webp");
        case FormatStrategy::avif:
            return QStringLiteral("avif");
        case FormatStrategy::heic:
            return QStringLiteral("heic");
    }
    return {};
}

FormatStrategy formatStrategyFromStoredText(const QString& text) {
    if (text == QLatin1String("jpeg") || text == QLatin1String("heicToJpeg"))
        return FormatStrategy::jpeg;
    if (text == QLatin1String("png")) return FormatStrategy::png;
    if (text == QLatin1String("webp")) return FormatStrategy::webp;
    if (text == QLatin1String("avif")) return FormatStrategy::avif;
    if (text == QLatin1String("heic")) return FormatStrategy::heic;
    return FormatStrategy::automatic;  // also "automatic" and the old "keepOriginal"
}

QString title(FormatStrategy strategy, AppLanguage language) {
    switch (strategy) {
        case FormatStrategy::automatic:
            return text(language, Text::formatOriginal);
        case FormatStrategy::jpeg:
            return QStringLiteral("JPEG");
        case FormatStrategy::png:
            return QStringLiteral("PNG");
        case FormatStrategy::webp:
            return QStringLiteral("WebP");
        case FormatStrategy::avif:
            return QStringLiteral("AVIF");
        case FormatStrategy::heic:
            return QStringLiteral("HEIC");
    }
    return {};
}

std::vector<FormatStrategy> formatStrategyMenuCases() {
    std::vector<FormatStrategy> cases = {FormatStrategy::automatic, FormatStrategy::jpeg,
                                         FormatStrategy::png, FormatStrategy::webp};
    const QStringList writable = writableTypeIdentifiers();
    if (writable.contains(typeIdentifier(ImageFormat::avif))) cases.push_back(FormatStrategy::avif);
    if (writable.contains(typeIdentifier(ImageFormat::heic))) cases.push_back(FormatStrategy::heic);
    return cases;
}

QString rawValue(OriginalPolicy policy) {
    return policy == OriginalPolicy::replace ? QStringLiteral("replace") : QStringLiteral("backup");
}

OriginalPolicy originalPolicyFromStoredText(const QString& text) {
    if (text == QLatin1String("replace") || text == QLatin1String("remove"))
        return OriginalPolicy::replace;
    return OriginalPolicy::keep;
}

QString title(OriginalPolicy policy, AppLanguage language) {
    return text(language,
                policy == OriginalPolicy::replace ? Text::originalReplace : Text::originalKeep);
}

QString rawValue(MetadataPolicy policy) {
    switch (policy) {
        case MetadataPolicy::keepWithoutLocation:
            return QStringLiteral("keepWithoutLocation");
        case MetadataPolicy::keepAll:
            return QStringLiteral("keepAll");
        case MetadataPolicy::strip:
            return QStringLiteral("strip");
    }
    return {};
}

std::optional<MetadataPolicy> metadataPolicyFromRawValue(const QString& raw) {
    for (MetadataPolicy policy : metadataPolicyMenuCases()) {
        if (rawValue(policy) == raw) return policy;
    }
    return std::nullopt;
}

QString title(MetadataPolicy policy, AppLanguage language) {
    switch (policy) {
        case MetadataPolicy::keepWithoutLocation:
            return text(language, Text::metadataKeepWithoutLocation);
        case MetadataPolicy::keepAll:
            return text(language, Text::metadataKeepAll);
        case MetadataPolicy::strip:
            return text(language, Text::metadataStrip);
    }
    return {};
}

std::vector<MetadataPolicy> metadataPolicyMenuCases() {
    return {MetadataPolicy::keepWithoutLocation, MetadataPolicy::keepAll, MetadataPolicy::strip};
}

void AppConfig::normalizeForCurrentVersion() {
    if (preset == CompressionPreset::jpegCompatible) preset = CompressionPreset::balanced;
    outputDirectory.reset();
}

bool AppConfig::requiresCompressorRestart(const AppConfig& other) const {
    auto standardized = [](const std::optional<QString>& path) {
        return path ? std::optional<QString>(QDir::cleanPath(*path)) : std::nullopt;
    };
    return standardized(watchDirectory) != standardized(other.watchDirectory) ||
           watchDirectoryBookmark != other.watchDirectoryBookmark || preset != other.preset ||
           formatStrategy != other.formatStrategy || originalPolicy != other.originalPolicy ||
           qualities != other.qualities || metadataPolicy != other.metadataPolicy ||
           backupRetentionDays != other.backupRetentionDays;
}

}  // namespace velt
