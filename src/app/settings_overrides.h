// Settings given for one run only (on the command line): applied to a copy of the saved
// settings that the engine receives, never saved.
#pragma once

#include "model/settings.h"

#include <map>
#include <optional>

namespace velt {

struct SettingsOverrides {
    std::optional<CompressionPreset> preset;
    std::optional<FormatStrategy> formatStrategy;
    std::optional<OriginalPolicy> originalPolicy;
    std::map<ImageFormat, int> qualities;  // applied after the preset's numbers
    std::optional<MetadataPolicy> metadataPolicy;

    bool empty() const {
        return !preset && !formatStrategy && !originalPolicy && qualities.empty() &&
               !metadataPolicy;
    }
    // A preset brings its own qualities, as choosing it in the settings does; explicit
    // qualities then replace single numbers.
    AppConfig appliedTo(AppConfig config) const;

    bool operator==(const SettingsOverrides&) const = default;
};

}  // namespace velt
