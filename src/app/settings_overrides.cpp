#include "app/settings_overrides.h"

namespace velt {
namespace {

int& qualityField(QualitySettings& qualities, ImageFormat format) {
    switch (format) {
        case ImageFormat::jpeg:
            return qualities.jpeg;
        case ImageFormat::png:
            return qualities.png;
        case ImageFormat::webp:
            return qualities.webp;
        case ImageFormat::avif:
            return qualities.avif;
        case ImageFormat::heic:
            break;
    }
    return qualities.heic;
}

}  // namespace

AppConfig SettingsOverrides::appliedTo(AppConfig config) const {
    if (preset) {
        config.preset = *preset;
        config.qualities = defaults(*preset);
    }
    if (formatStrategy) config.formatStrategy = *formatStrategy;
    if (originalPolicy) config.originalPolicy = *originalPolicy;
    if (metadataPolicy) config.metadataPolicy = *metadataPolicy;
    for (const auto& [format, quality] : qualities)
        qualityField(config.qualities, format) = quality;
    return config;
}

}  // namespace velt
