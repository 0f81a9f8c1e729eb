// AppUpdateError: the one error type of the self-update subsystem, with its English diagnostic
// (for the log) and the bilingual message the user reads in the "Could not update the app"
// alert. UpdateFailure carries any failure of an update action: one of ours, or a network or
// JSON error known only by its description, which the user sees as a connection problem.
#pragma once

#include "model/text_catalogue.h"

#include <QString>
#include <exception>
#include <optional>
#include <string>

namespace velt {

class AppUpdateError : public std::exception {
  public:
    enum class Kind {
        invalidManifest,    // message
        httpStatus,         // status code
        unsupportedSystem,  // required system version
        installation,       // message
        noUpdatePackage,
        appRunningFromDiskImage,  // the bundle cannot be written
        updaterHelperMissing,
        checksumMismatch,
        signatureRejected,  // message: what the signature check found
        updateKeyMissing,   // the build carries no key to verify updates with
    };

    static AppUpdateError invalidManifest(const QString& message);
    static AppUpdateError httpStatus(int code);
    static AppUpdateError unsupportedSystem(const QString& requiredVersion);
    static AppUpdateError installation(const QString& message);
    static AppUpdateError noUpdatePackage() { return AppUpdateError(Kind::noUpdatePackage); }
    static AppUpdateError appRunningFromDiskImage() {
        return AppUpdateError(Kind::appRunningFromDiskImage);
    }
    static AppUpdateError updaterHelperMissing() {
        return AppUpdateError(Kind::updaterHelperMissing);
    }
    static AppUpdateError checksumMismatch() { return AppUpdateError(Kind::checksumMismatch); }
    static AppUpdateError signatureRejected(const QString& message);
    static AppUpdateError updateKeyMissing() { return AppUpdateError(Kind::updateKeyMissing); }

    Kind kind() const { return kind_; }
    // The payload text of invalidManifest, installation, unsupportedSystem and
    // signatureRejected.
    const QString& message() const { return message_; }
    int statusCode() const { return statusCode_; }

    // English; used in the log and as the error's localised description.
    QString errorDescription() const;
    // The alert's informative text; depends on the case only, never on a payload message.
    QString userMessage(AppLanguage language) const;

    const char* what() const noexcept override { return what_.c_str(); }

  private:
    explicit AppUpdateError(Kind kind, QString message = {}, int statusCode = 0);

    Kind kind_;
    QString message_;
    int statusCode_;
    std::string what_;
};

struct UpdateFailure {
    std::optional<AppUpdateError> error;  // nothing for a network or JSON failure
    QString description;                  // English

    static UpdateFailure from(const AppUpdateError& error) {
        return {error, error.errorDescription()};
    }
    static UpdateFailure other(const QString& description) { return {std::nullopt, description}; }

    QString userMessage(AppLanguage language) const;
};

}  // namespace velt
