#include "update/app_update_manifest.h"

#include "update/app_update_error.h"
#include "update/app_version.h"

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>

namespace velt {
namespace {

using Json = nlohmann::json;

QString requiredText(const Json& object, const char* key) {
    return QString::fromStdString(object.at(key).get<std::string>());
}

// Absent and null both mean "not given"; anything else must be a string.
std::optional<QString> optionalText(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return std::nullopt;
    return QString::fromStdString(found->get<std::string>());
}

bool isHttpsWithHost(const QString& text) {
    const QUrl url(text, QUrl::StrictMode);
    return url.isValid() && !url.scheme().isEmpty() &&
           url.scheme().toLower() == QLatin1String("https") && !url.host().isEmpty();
}

bool isHexDigest(const QString& digest) {
    if (digest.size() != 64) return false;
    return std::all_of(digest.begin(), digest.end(), [](QChar c) {
        return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) ||
               (c >= QLatin1Char('a') && c <= QLatin1Char('f'));
    });
}

void require(bool valid, const char* message) {
    if (!valid) throw AppUpdateError::invalidManifest(QString::fromUtf8(message));
}

}  // namespace

AppUpdateManifest AppUpdateManifest::decode(std::string_view json) {
    const Json object = Json::parse(json);
    if (!object.is_object())
        throw Json::type_error::create(302, "the manifest is not a JSON object", &object);
    AppUpdateManifest manifest;
    manifest.version = requiredText(object, "version");
    manifest.build = optionalText(object, "build");
    manifest.notes = optionalText(object, "notes");
    manifest.minimumMacOS = optionalText(object, "minimum_macOS");
    manifest.signature = optionalText(object, "signature");
    const QString download = requiredText(object, "download");
    require(isHttpsWithHost(download), "The update URL must use HTTPS");
    manifest.downloadURL = QUrl(download, QUrl::StrictMode);
    manifest.sha256 = requiredText(object, "sha256").trimmed().toLower();
    require(isHexDigest(manifest.sha256), "The update checksum is invalid");
    require(AppVersion::parse(manifest.version).has_value(), "The update version is invalid");
    require(!manifest.build || AppVersion::parse(*manifest.build),
            "The update build number is invalid");
    require(!manifest.minimumMacOS || AppVersion::parse(*manifest.minimumMacOS),
            "The minimum macOS version is invalid");
    return manifest;
}

bool isNewer(const AppUpdateManifest& manifest, const QString& version, const QString& build) {
    const auto offered = AppVersion::parse(manifest.version);
    const auto running = AppVersion::parse(version);
    if (!offered || !running) return false;
    if (!(*offered == *running)) return *running < *offered;
    if (!manifest.build) return false;
    const auto runningBuild = AppVersion::parse(build);
    const auto offeredBuild = AppVersion::parse(*manifest.build);
    if (!runningBuild || !offeredBuild) return false;
    return *runningBuild < *offeredBuild;
}

bool isSupported(const AppUpdateManifest& manifest, const QString& systemVersion) {
    if (!manifest.minimumMacOS) return true;
    const auto minimum = AppVersion::parse(*manifest.minimumMacOS);
    if (!minimum) return true;
    const auto system = AppVersion::parse(systemVersion);
    if (!system) std::abort();  // the system's own version always parses
    return !(*system < *minimum);
}

}  // namespace velt
