#include "model/config_file.h"

#include "model/atomic_file.h"
#include "model/file_url.h"
#include "model/json_fields.h"
#include "model/native_log.h"
#include "model/paths.h"

#include <algorithm>

namespace velt {
namespace {

using json::optionalBool;
using json::optionalInt64;
using json::optionalString;

std::optional<QualitySettings> decodeQualities(const nlohmann::json& object,
                                               const char* key = "qualities") {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    const auto& q = json::requireObject(*it);
    return QualitySettings{json::required(json::optionalInt(q, "jpeg"), "jpeg"),
                           json::required(json::optionalInt(q, "png"), "png"),
                           json::required(json::optionalInt(q, "webp"), "webp"),
                           json::required(json::optionalInt(q, "avif"), "avif"),
                           json::required(json::optionalInt(q, "heic"), "heic")};
}

AppConfig decodeObject(const nlohmann::json& object) {
    json::requireObject(object);
    AppConfig config;
    config.enabled = optionalBool(object, "enabled").value_or(config.enabled);
    config.autostart = optionalBool(object, "autostart").value_or(config.autostart);
    config.autostartAsked = optionalBool(object, "autostartAsked").value_or(config.autostartAsked);
    config.showMenuBarProgress =
        optionalBool(object, "showMenuBarProgress").value_or(config.showMenuBarProgress);
    config.notificationsEnabled =
        optionalBool(object, "notificationsEnabled").value_or(config.notificationsEnabled);
    if (const auto raw = optionalString(object, "language")) {
        const auto language = appLanguageFromRawValue(*raw);
        if (!language) throw json::JsonDecodeError("unknown language");
        config.language = *language;
    }
    config.watchDirectory = json::optionalFilePath(object, "watchDirectory");
    config.watchDirectoryBookmark = json::optionalBase64(object, "watchDirectoryBookmark");
    config.outputDirectory = json::optionalFilePath(object, "outputDirectory");
    if (const auto raw = optionalString(object, "preset")) {
        const auto preset = compressionPresetFromRawValue(*raw);
        if (!preset) throw json::JsonDecodeError("unknown preset");
        config.preset = *preset;
    }
    if (const auto raw = optionalString(object, "formatStrategy"))
        config.formatStrategy = formatStrategyFromStoredText(*raw);
    if (const auto raw = optionalString(object, "originalPolicy"))
        config.originalPolicy = originalPolicyFromStoredText(*raw);
    // Missing qualities follow the preset read from the same file, before any normalisation.
    config.qualities = decodeQualities(object).value_or(defaults(config.preset));
    // Only a convenience: a damaged one is dropped, never the whole file.
    try {
        config.customQualities = decodeQualities(object, "customQualities");
    } catch (const std::exception&) {
        config.customQualities.reset();
    }
    // A policy this version does not know (written by a newer one) keeps the default.
    if (const auto raw = optionalString(object, "metadataPolicy"))
        config.metadataPolicy =
            metadataPolicyFromRawValue(*raw).value_or(MetadataPolicy::keepWithoutLocation);
    // Any other number of days keeps backups forever: nothing is removed on a guess.
    if (const auto days = optionalInt64(object, "backupRetentionDays");
        days &&
        std::ranges::find(backupRetentionChoices, *days) != std::end(backupRetentionChoices))
        config.backupRetentionDays = static_cast<int>(*days);
    return config;
}

}  // namespace

std::optional<AppConfig> decodeAppConfig(const QByteArray& data) {
    const auto parsed = json::parse(data);
    if (!parsed) return std::nullopt;
    try {
        return decodeObject(*parsed);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

QByteArray encodeAppConfig(const AppConfig& config) {
    using json::toStd;
    nlohmann::ordered_json object;
    object["enabled"] = config.enabled;
    object["autostart"] = config.autostart;
    object["autostartAsked"] = config.autostartAsked;
    object["showMenuBarProgress"] = config.showMenuBarProgress;
    object["notificationsEnabled"] = config.notificationsEnabled;
    object["language"] = toStd(rawValue(config.language));
    if (config.watchDirectory)
        object["watchDirectory"] = toStd(fileURLText(*config.watchDirectory, true));
    if (config.watchDirectoryBookmark)
        object["watchDirectoryBookmark"] = config.watchDirectoryBookmark->toBase64().toStdString();
    if (config.outputDirectory)
        object["outputDirectory"] = toStd(fileURLText(*config.outputDirectory, true));
    object["preset"] = toStd(rawValue(config.preset));
    object["formatStrategy"] = toStd(rawValue(config.formatStrategy));
    object["originalPolicy"] = toStd(rawValue(config.originalPolicy));
    const auto qualities = [](const QualitySettings& q) {
        return nlohmann::ordered_json{
            {"jpeg", q.jpeg}, {"png", q.png}, {"webp", q.webp}, {"avif", q.avif}, {"heic", q.heic}};
    };
    object["qualities"] = qualities(config.qualities);
    if (config.customQualities) object["customQualities"] = qualities(*config.customQualities);
    object["metadataPolicy"] = toStd(rawValue(config.metadataPolicy));
    object["backupRetentionDays"] = config.backupRetentionDays;
    return QByteArray::fromStdString(
        object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

AppConfig loadAppConfig() {
    const auto data = readWholeFile(veltDataFilePath(configFileName));
    if (!data) return AppConfig();
    auto config = decodeAppConfig(*data);
    if (!config) return AppConfig();
    config->normalizeForCurrentVersion();
    return *config;
}

bool saveAppConfig(const AppConfig& config) {
    QString error;
    if (writeFileAtomically(veltDataFilePath(configFileName), encodeAppConfig(config), &error))
        return true;
    NativeLog::write(QStringLiteral("Config save failed ") + error);
    return false;
}

}  // namespace velt
