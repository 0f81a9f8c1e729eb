// AppUpdateManifest: the release manifest the vendor publishes, decoded from JSON and validated
// before anyone sees it; immutable afterwards. Also the two questions asked of a manifest: is it
// newer than what runs, and can this computer run it.
#pragma once

#include <QString>
#include <QUrl>
#include <optional>
#include <string_view>

namespace velt {

struct AppUpdateManifest {
    QString version;
    std::optional<QString> build;
    QUrl downloadURL;
    std::optional<QString> notes;
    QString sha256;  // trimmed, lower-case, 64 hexadecimal digits
    // Lowest glibc that runs the release (the key keeps its historical name "minimum_macOS").
    std::optional<QString> minimumMacOS;
    // Base64 Ed25519 signature of the package by the release key, as written; checked by the
    // updater after the download (a manifest without one decodes, its package is refused).
    std::optional<QString> signature;

    // Decodes and validates `json` in a fixed order; the first failure ends it. Throws
    // nlohmann::json::exception for bad JSON, a missing required key or a value that is not a
    // string, and AppUpdateError::invalidManifest for a failed validation.
    static AppUpdateManifest decode(std::string_view json);

    bool operator==(const AppUpdateManifest&) const = default;
};

// Whether `manifest` is a later release than the running `version` / `build`. Versions that
// differ only by trailing zeros are never newer and never reach the build comparison.
bool isNewer(const AppUpdateManifest& manifest, const QString& version, const QString& build);

// Whether a system whose version is `systemVersion` (which must parse) can run the release.
bool isSupported(const AppUpdateManifest& manifest, const QString& systemVersion);

}  // namespace velt
