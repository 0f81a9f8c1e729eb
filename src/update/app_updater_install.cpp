// The hand-over to the update helper, and what the updater knows of the running process.
#include "update/app_updater.h"

#include "update/package_signature.h"
#include "update/update_config.h"
#include "update/update_files.h"

#include <gnu/libc-version.h>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QUuid>

namespace velt {

UpdaterEnvironment UpdaterEnvironment::current() {
    UpdaterEnvironment environment;
    environment.version = QString::fromUtf8(updateconfig::version);
    environment.build = QString::fromUtf8(updateconfig::build);
    environment.systemVersion = QString::fromUtf8(gnu_get_libc_version());
    environment.executablePath = QCoreApplication::applicationFilePath();
    environment.processId = QCoreApplication::applicationPid();
    environment.updateKey = builtInUpdateKey();
    // $SSL_CERT_FILE is OpenSSL's standard way to name another authority to trust (a company
    // proxy's, a test server's); it is added here so that it holds whatever Qt's backend reads.
    const QString extra = qEnvironmentVariable("SSL_CERT_FILE");
    if (!extra.isEmpty())
        environment.extraCertificateAuthorities = QSslCertificate::fromPath(extra);
    return environment;
}

void AppUpdater::installAndRestart(std::function<void(std::optional<UpdateFailure>)> completion) {
    if (activeTask_) return;
    const auto fail = [&](const AppUpdateError& error) {
        setState(AppUpdaterState::failed);
        completion(UpdateFailure::from(error));
    };
    if (!downloadedPackage_ || !QFileInfo::exists(*downloadedPackage_) || !readyUpdate_)
        return fail(AppUpdateError::noUpdatePackage());
    const auto bundle = bundleOfExecutable(environment_.executablePath);
    if (!bundle)
        return fail(AppUpdateError::installation(
            QStringLiteral("The running application bundle could not be located.")));
    if (!bundleIsReplaceable(*bundle)) return fail(AppUpdateError::appRunningFromDiskImage());
    if (!QFileInfo(helperInBundle(*bundle)).isFile())
        return fail(AppUpdateError::updaterHelperMissing());
    if (auto failure = launchHelper()) {
        setState(AppUpdaterState::failed);
        return completion(failure);
    }
    setState(AppUpdaterState::installing);
    completion(std::nullopt);
}

// The helper runs from its own copy: the bundle it comes from is about to be replaced.
std::optional<UpdateFailure> AppUpdater::launchHelper() {
    const auto installation = [](const QString& message) {
        return UpdateFailure::from(AppUpdateError::installation(message));
    };
    const QString bundle = *bundleOfExecutable(environment_.executablePath);
    const QString folder =
        QDir::temp().filePath(QStringLiteral("VELTCompressor-Updater-") +
                              QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    if (!QDir().mkpath(folder))
        return installation(QStringLiteral("The folder ") + folder +
                            QStringLiteral(" could not be created."));
    const QString helper = QDir(folder).filePath(QStringLiteral("VELTUpdater"));
    QFile source(helperInBundle(bundle));
    if (!source.copy(helper)) return installation(source.errorString());
    QFile copy(helper);
    if (!copy.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                             QFileDevice::ExeOwner | QFileDevice::ReadGroup |
                             QFileDevice::ExeGroup | QFileDevice::ReadOther |
                             QFileDevice::ExeOther))
        return installation(copy.errorString());
    // A self-contained bundle keeps the helper's libraries in its lib/, which the copy finds
    // through a link beside itself (its run path names $ORIGIN/lib).
    const QString libraries = QDir(bundle).filePath(QStringLiteral("lib"));
    if (QFileInfo(libraries).isDir() &&
        !QFile::link(libraries, QDir(folder).filePath(QStringLiteral("lib"))))
        return installation(QStringLiteral("The helper's libraries could not be linked."));
    QProcess process;
    process.setProgram(helper);
    process.setArguments({QStringLiteral("--pid"), QString::number(environment_.processId),
                          QStringLiteral("--target"), bundle, QStringLiteral("--dmg"),
                          *downloadedPackage_, QStringLiteral("--version"), readyUpdate_->version,
                          QStringLiteral("--relaunch")});
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    if (!process.startDetached()) return installation(process.errorString());
    return std::nullopt;
}

}  // namespace velt
