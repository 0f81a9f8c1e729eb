#include "update/app_updater.h"

#include "model/atomic_file.h"
#include "update/package_signature.h"
#include "update/update_config.h"
#include "update/update_files.h"

#include <QDir>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QTemporaryFile>
#include <QUuid>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace velt {
namespace {

constexpr int manifestTimeoutMilliseconds = 15'000;
constexpr int packageTimeoutMilliseconds = 120'000;

// What went wrong before any HTTP status could be judged, or the status itself.
std::optional<UpdateFailure> transferFailure(QNetworkReply* reply, const char* noResponse) {
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid()) {
        if (reply->error() != QNetworkReply::NoError)
            return UpdateFailure::other(reply->errorString());
        return UpdateFailure::from(AppUpdateError::invalidManifest(QString::fromUtf8(noResponse)));
    }
    const int code = status.toInt();
    if (code < 200 || code > 299) return UpdateFailure::from(AppUpdateError::httpStatus(code));
    // A body cut short after a good status line.
    if (reply->error() != QNetworkReply::NoError) return UpdateFailure::other(reply->errorString());
    return std::nullopt;
}

// Why the downloaded `package` must not be installed, if it must not. A package that passes has
// its signature written beside it, where the update helper checks it again.
std::optional<AppUpdateError> refusalOf(const QString& package, const AppUpdateManifest& manifest,
                                        const QByteArray& updateKey) {
    if (sha256(package) != manifest.sha256) return AppUpdateError::checksumMismatch();
    const QByteArray signature = manifest.signature.value_or(QString()).toLatin1();
    const SignatureCheck check = verifyPackageSignature(package, signature, updateKey);
    if (check != SignatureCheck::verified)
        return AppUpdateError::signatureRejected(describe(check));
    QString unwritten;
    if (!writeFileAtomically(signatureFileOf(package), signature, &unwritten))
        return AppUpdateError::installation(unwritten);
    return std::nullopt;
}

}  // namespace

QUrl defaultManifestURL() {
    const QString overridden = qEnvironmentVariable("VELT_UPDATE_MANIFEST_URL");
    if (!overridden.isEmpty()) return QUrl(overridden);
    return QUrl(QString::fromUtf8(updateconfig::manifestURL));
}

QUrl websiteURL() {
    return QUrl(QString::fromUtf8(updateconfig::websiteURL));
}

AppUpdater::AppUpdater(QUrl manifestURL, UpdaterEnvironment environment, QObject* parent)
    : QObject(parent), manifestURL_(std::move(manifestURL)), environment_(std::move(environment)) {
    // The platform's cache never answers for the update server.
    network_.setCache(nullptr);
}

AppUpdater::~AppUpdater() {
    if (activeTask_) activeTask_->abort();
}

void AppUpdater::setState(AppUpdaterState state) {
    state_ = state;
    if (onChange) onChange();
}

bool AppUpdater::isNewer(const AppUpdateManifest& manifest) const {
    return velt::isNewer(manifest, environment_.version, environment_.build);
}

bool AppUpdater::isSupported(const AppUpdateManifest& manifest) const {
    return velt::isSupported(manifest, environment_.systemVersion);
}

QNetworkReply* AppUpdater::startTransfer(const QUrl& url, const char* accept,
                                         int timeoutMilliseconds) {
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setTransferTimeout(timeoutMilliseconds);
    request.setRawHeader("Accept", accept);
    // Every redirect is followed; where the chain ends is judged afterwards.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    if (!environment_.extraCertificateAuthorities.isEmpty()) {
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.addCaCertificates(environment_.extraCertificateAuthorities);
        request.setSslConfiguration(ssl);
    }
    QNetworkReply* reply = network_.get(request);
    connect(reply, &QNetworkReply::redirected, reply, &QNetworkReply::redirectAllowed);
    activeTask_ = reply;
    return reply;
}

void AppUpdater::check(std::function<void(UpdateResult<AppUpdateCheckResult>)> completion) {
    if (activeTask_) return;
    if (readyUpdate_) {
        completion(AppUpdateCheckResult(*readyUpdate_));
        return;
    }
    setState(AppUpdaterState::checking);
    QNetworkReply* reply =
        startTransfer(manifestURL_, "application/json", manifestTimeoutMilliseconds);
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, completion = std::move(completion)] {
                reply->deleteLater();
                finishCheck(reply, completion);
            });
}

void AppUpdater::finishCheck(
    QNetworkReply* reply,
    const std::function<void(UpdateResult<AppUpdateCheckResult>)>& completion) {
    activeTask_ = nullptr;
    const auto fail = [&](const UpdateFailure& failure) {
        setState(AppUpdaterState::failed);
        completion(failure);
    };
    if (auto failure = transferFailure(reply, "The update server returned an invalid response."))
        return fail(*failure);
    const QByteArray body = reply->readAll();
    if (body.isNull())
        return fail(UpdateFailure::from(
            AppUpdateError::invalidManifest(QStringLiteral("The update manifest is empty."))));
    AppUpdateManifest manifest;
    try {
        manifest = AppUpdateManifest::decode(std::string_view(body.constData(), body.size()));
    } catch (const AppUpdateError& error) {
        return fail(UpdateFailure::from(error));
    } catch (const nlohmann::json::exception& error) {
        return fail(UpdateFailure::other(QString::fromUtf8(error.what())));
    }
    if (!isSupported(manifest))
        return fail(UpdateFailure::from(AppUpdateError::unsupportedSystem(
            manifest.minimumMacOS.value_or(QStringLiteral("the required version")))));
    setState(AppUpdaterState::idle);
    if (isNewer(manifest))
        completion(AppUpdateCheckResult(manifest));
    else
        completion(AppUpdateCheckResult(UpToDate{environment_.version}));
}

void AppUpdater::download(const AppUpdateManifest& manifest,
                          std::function<void(UpdateResult<QString>)> completion) {
    if (activeTask_) return;
    if (!isNewer(manifest))
        return completion(UpdateFailure::from(AppUpdateError::invalidManifest(
            QStringLiteral("The downloaded version is not newer than the installed version."))));
    if (!isSupported(manifest))
        return completion(UpdateFailure::from(AppUpdateError::unsupportedSystem(
            manifest.minimumMacOS.value_or(QStringLiteral("the required version")))));
    // No package could pass: nothing is fetched.
    if (environment_.updateKey.isEmpty())
        return completion(UpdateFailure::from(AppUpdateError::updateKeyMissing()));
    setState(AppUpdaterState::downloading);
    download_ = std::make_unique<QTemporaryFile>(
        QDir::temp().filePath(QStringLiteral("velt-download-XXXXXX")));
    if (!download_->open()) download_.reset();  // reported as "not downloaded" at the end
    QNetworkReply* reply =
        startTransfer(manifest.downloadURL, "application/octet-stream", packageTimeoutMilliseconds);
    connect(reply, &QNetworkReply::readyRead, this, [this, reply] {
        if (download_ && download_->write(reply->readAll()) < 0) download_.reset();
    });
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, manifest, completion = std::move(completion)] {
                reply->deleteLater();
                finishDownload(reply, manifest, completion);
            });
}

void AppUpdater::finishDownload(QNetworkReply* reply, const AppUpdateManifest& manifest,
                                const std::function<void(UpdateResult<QString>)>& completion) {
    activeTask_ = nullptr;
    const std::unique_ptr<QTemporaryFile> downloaded = std::move(download_);
    UpdateResult<QString> result = [&]() -> UpdateResult<QString> {
        if (auto failure =
                transferFailure(reply, "The update download returned an invalid response.")) {
            if (!failure->error || failure->error->kind() != AppUpdateError::Kind::invalidManifest)
                return *failure;
            return UpdateFailure::from(AppUpdateError::installation(
                QStringLiteral("The update download returned an invalid response.")));
        }
        const QUrl finalURL = reply->url();
        if (!finalURL.isValid() || finalURL.scheme().toLower() != QLatin1String("https"))
            return UpdateFailure::from(AppUpdateError::installation(
                QStringLiteral("The update download did not finish over HTTPS.")));
        if (downloaded && downloaded->write(reply->readAll()) >= 0 && downloaded->flush())
            return storeVerifiedPackage(downloaded->fileName(), manifest);
        return UpdateFailure::from(
            AppUpdateError::installation(QStringLiteral("The update package was not downloaded.")));
    }();
    if (const auto* package = std::get_if<QString>(&result)) {
        readyUpdate_ = manifest;
        downloadedPackage_ = *package;
        setState(AppUpdaterState::idle);
    } else {
        setState(AppUpdaterState::failed);
    }
    completion(result);
}

UpdateResult<QString> AppUpdater::storeVerifiedPackage(const QString& downloaded,
                                                       const AppUpdateManifest& manifest) {
    const QString folder =
        QDir::temp().filePath(QStringLiteral("VELTCompressor-Update-") +
                              QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    if (!QDir().mkpath(folder))
        return UpdateFailure::from(AppUpdateError::installation(
            QStringLiteral("The folder ") + folder + QStringLiteral(" could not be created.")));
    const QString package = QDir(folder).filePath(QStringLiteral("update.tar.gz"));
    if (auto error = moveOrCopy(downloaded, package))
        return UpdateFailure::from(AppUpdateError::installation(*error));
    if (const auto refusal = refusalOf(package, manifest, environment_.updateKey)) {
        // Nothing of a refused download is kept.
        std::error_code error;
        std::filesystem::remove_all(std::filesystem::path(QFile::encodeName(folder).toStdString()),
                                    error);
        if (error)
            return UpdateFailure::from(
                AppUpdateError::installation(QString::fromLocal8Bit(error.message().c_str())));
        return UpdateFailure::from(*refusal);
    }
    return package;
}

}  // namespace velt
