// The user's settings: AppConfig and its enumerations. Plain values, copied rather than shared;
// the store owns the live record and the engine receives a copy at each start.
#pragma once

#include "model/app_language.h"
#include "model/image_format.h"

#include <QByteArray>
#include <QString>
#include <array>
#include <optional>
#include <vector>

namespace velt {

// Quality 0-100 per output format.
struct QualitySettings {
    int jpeg = 76;
    int png = 82;
    int webp = 78;
    int avif = 50;
    int heic = 72;

    int quality(ImageFormat format) const;
    bool operator==(const QualitySettings&) const = default;
};

enum class CompressionPreset { balanced, gentle, maximum, jpegCompatible, custom };
inline constexpr std::array<CompressionPreset, 5> allCompressionPresets = {
    CompressionPreset::balanced, CompressionPreset::gentle, CompressionPreset::maximum,
    CompressionPreset::jpegCompatible, CompressionPreset::custom};

QString rawValue(CompressionPreset preset);
std::optional<CompressionPreset> compressionPresetFromRawValue(const QString& raw);
QString title(CompressionPreset preset, AppLanguage language = AppLanguage::russian);
// The qualities a preset stands for; `custom` starts from the balanced numbers.
QualitySettings defaults(CompressionPreset preset);
// What the menu offers: balanced, gentle, maximum, custom (jpegCompatible is legacy).
std::vector<CompressionPreset> presetMenuCases();

enum class FormatStrategy { automatic, jpeg, png, webp, avif, heic };

QString rawValue(FormatStrategy strategy);
// Lenient: accepts the older texts "keepOriginal" and "heicToJpeg"; anything unknown is automatic.
FormatStrategy formatStrategyFromStoredText(const QString& text);
QString title(FormatStrategy strategy, AppLanguage language = AppLanguage::russian);
// automatic, jpeg, png, webp, then avif and heic only where the image writer can encode them.
std::vector<FormatStrategy> formatStrategyMenuCases();

enum class OriginalPolicy { keep, replace };

// `keep` is stored as "backup" for compatibility with existing settings files.
QString rawValue(OriginalPolicy policy);
// Lenient: "backup"/"outputFolder"/"keep" → keep, "replace"/"remove" → replace, else keep.
OriginalPolicy originalPolicyFromStoredText(const QString& text);
QString title(OriginalPolicy policy, AppLanguage language = AppLanguage::russian);

// What of a photo's own data (EXIF, XMP, IPTC: capture date, camera, lens, exposure, copyright)
// its output carries. The default drops only the location, which is what careful users want
// before a photo leaves their hands.
enum class MetadataPolicy { keepWithoutLocation, keepAll, strip };

QString rawValue(MetadataPolicy policy);
// Nothing for an unknown text (the settings file then keeps the default).
std::optional<MetadataPolicy> metadataPolicyFromRawValue(const QString& raw);
QString title(MetadataPolicy policy, AppLanguage language = AppLanguage::russian);
// What the settings window offers, in this order: keepWithoutLocation, keepAll, strip.
std::vector<MetadataPolicy> metadataPolicyMenuCases();

// How long backups are kept, in days; 0 is forever. What the settings window offers, in order.
inline constexpr int backupRetentionChoices[] = {0, 7, 30, 90};

struct AppConfig {
    bool enabled = true;
    bool autostart = false;
    bool autostartAsked = false;
    bool showMenuBarProgress = true;
    bool notificationsEnabled = true;
    AppLanguage language = AppLanguage::russian;
    std::optional<QString> watchDirectory;  // absolute path of the watched folder
    std::optional<QByteArray> watchDirectoryBookmark;
    std::optional<QString> outputDirectory;  // legacy, always cleared on load
    CompressionPreset preset = CompressionPreset::balanced;
    FormatStrategy formatStrategy = FormatStrategy::automatic;
    OriginalPolicy originalPolicy = OriginalPolicy::keep;
    QualitySettings qualities = defaults(CompressionPreset::balanced);
    // The user's own numbers while a named preset is chosen, so that choosing custom again
    // brings them back.
    std::optional<QualitySettings> customQualities;
    MetadataPolicy metadataPolicy = MetadataPolicy::keepWithoutLocation;
    // Day folders of backups older than this many days are removed (only what the program
    // wrote there); 0 keeps them forever. One of backupRetentionChoices.
    int backupRetentionDays = 0;

    // Maps the legacy jpegCompatible preset to balanced (qualities kept) and drops the legacy
    // output folder.
    void normalizeForCurrentVersion();

    // Whether a running engine must be restarted to work with `other` instead of this record:
    // only the watched folder (standardised path), its bookmark, the preset, the format
    // strategy, the original policy, the qualities, the metadata policy and how long backups are
    // kept matter.
    bool requiresCompressorRestart(const AppConfig& other) const;

    bool operator==(const AppConfig&) const = default;
};

}  // namespace velt
