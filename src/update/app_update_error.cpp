#include "update/app_update_error.h"

#include "update/package_signature.h"

namespace velt {

AppUpdateError::AppUpdateError(Kind kind, QString message, int statusCode)
    : kind_(kind), message_(std::move(message)), statusCode_(statusCode) {
    what_ = errorDescription().toStdString();
}

AppUpdateError AppUpdateError::invalidManifest(const QString& message) {
    return AppUpdateError(Kind::invalidManifest, message);
}

AppUpdateError AppUpdateError::httpStatus(int code) {
    return AppUpdateError(Kind::httpStatus, {}, code);
}

AppUpdateError AppUpdateError::unsupportedSystem(const QString& requiredVersion) {
    return AppUpdateError(Kind::unsupportedSystem, requiredVersion);
}

AppUpdateError AppUpdateError::installation(const QString& message) {
    return AppUpdateError(Kind::installation, message);
}

AppUpdateError AppUpdateError::signatureRejected(const QString& message) {
    return AppUpdateError(Kind::signatureRejected, message);
}

QString AppUpdateError::errorDescription() const {
    switch (kind_) {
        case Kind::invalidManifest:
        case Kind::installation:
        case Kind::signatureRejected:
            return message_;
        case Kind::httpStatus:
            return QStringLiteral("The update server returned HTTP ") +
                   QString::number(statusCode_) + QLatin1Char('.');
        case Kind::unsupportedSystem:
            // The release's binaries need at least this C library; the manifest key keeps its
            // historical name.
            return QStringLiteral("This update requires glibc ") + message_ +
                   QStringLiteral(" or newer.");
        case Kind::noUpdatePackage:
            return QStringLiteral(
                "The update package is no longer available. Check for updates again.");
        case Kind::appRunningFromDiskImage:
            return QStringLiteral(
                "Move VELT | Compressor to a folder you can write to before installing an "
                "update.");
        case Kind::updaterHelperMissing:
            return QStringLiteral("The update helper is missing from the application bundle.");
        case Kind::checksumMismatch:
            return QStringLiteral(
                "The downloaded update checksum does not match the release manifest.");
        case Kind::updateKeyMissing:
            return describe(SignatureCheck::noKey);
    }
    return {};
}

QString AppUpdateError::userMessage(AppLanguage language) const {
    switch (kind_) {
        case Kind::invalidManifest:
            return text(language, Text::updateInvalidManifest);
        case Kind::httpStatus:
            return text(language, Text::updateServerUnavailable);
        case Kind::unsupportedSystem:
            return text(language, Text::updateNeedsGlibc, {message_});
        case Kind::installation:
            return text(language, Text::updateInstallationFailed);
        case Kind::noUpdatePackage:
            return text(language, Text::updatePackageGone);
        case Kind::appRunningFromDiskImage:
            return text(language, Text::updateBundleNotWritable);
        case Kind::updaterHelperMissing:
            return text(language, Text::updateHelperMissing);
        case Kind::checksumMismatch:
            return text(language, Text::updateChecksumMismatch);
        case Kind::signatureRejected:
            return text(language, Text::updateSignatureRejected);
        case Kind::updateKeyMissing:
            return text(language, Text::updateKeyMissing);
    }
    return {};
}

QString UpdateFailure::userMessage(AppLanguage language) const {
    if (error) return error->userMessage(language);
    return text(language, Text::updateNoConnection);
}

}  // namespace velt
