// AppUpdater: the program's self-updater. Fetches the release manifest over HTTPS, decides
// whether the release is newer and runs here, downloads the package into a fresh temporary
// folder and verifies its SHA-256 and its signature by the release key, and finally starts the
// update helper (a copy of the bundle's velt-updater), which replaces the bundle once this
// process has ended and relaunches it.
//
// Main thread only: network completions arrive on the thread that owns the updater. At most
// one transfer runs at a time; check, download and install called while one runs are dropped
// without completing. Every failure is delivered through the completion, never thrown.
#pragma once

#include "update/app_update_error.h"
#include "update/app_update_manifest.h"

#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QSslCertificate>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

class QTemporaryFile;

namespace velt {

enum class AppUpdaterState { idle, checking, downloading, installing, failed };

inline bool isBusy(AppUpdaterState state) {
    return state == AppUpdaterState::checking || state == AppUpdaterState::downloading ||
           state == AppUpdaterState::installing;
}

struct UpToDate {
    QString installedVersion;
};
using AppUpdateCheckResult = std::variant<UpToDate, AppUpdateManifest>;

template <typename Value>
using UpdateResult = std::variant<Value, UpdateFailure>;

// What the updater knows of the running program; `current()` describes this process.
struct UpdaterEnvironment {
    QString version;         // the running release ("0" when unknown)
    QString build;           // its build number ("0" when unknown)
    QString systemVersion;   // the running glibc, compared with "minimum_macOS"
    QString executablePath;  // the running program, inside its bundle's bin/
    qint64 processId = 0;
    // Trusted in addition to the system's certificate authorities: those of $SSL_CERT_FILE.
    QList<QSslCertificate> extraCertificateAuthorities;
    // The Ed25519 public key packages must be signed with (32 bytes): the built-in one. Empty:
    // every download is refused before it starts.
    QByteArray updateKey;

    static UpdaterEnvironment current();
};

// The manifest address: $VELT_UPDATE_MANIFEST_URL when set, otherwise the one built in.
QUrl defaultManifestURL();
QUrl websiteURL();

class AppUpdater : public QObject {
  public:
    explicit AppUpdater(QUrl manifestURL = defaultManifestURL(),
                        UpdaterEnvironment environment = UpdaterEnvironment::current(),
                        QObject* parent = nullptr);
    ~AppUpdater() override;

    AppUpdaterState state() const { return state_; }
    bool isBusy() const { return velt::isBusy(state_); }
    const std::optional<AppUpdateManifest>& readyUpdate() const { return readyUpdate_; }
    const std::optional<QString>& downloadedPackageURL() const { return downloadedPackage_; }
    const QUrl& manifestURL() const { return manifestURL_; }
    QString currentVersion() const { return environment_.version; }

    // Called after every state change that a view must show.
    std::function<void()> onChange;

    // Fetches the manifest (15 s time-out, cache ignored). A verified package already waiting
    // is offered at once without a request.
    void check(std::function<void(UpdateResult<AppUpdateCheckResult>)> completion);

    // Downloads the manifest's package (120 s time-out) into "VELTCompressor-Update-<UUID>/
    // update.tar.gz" in the temporary folder and checks its digest, then its signature, which
    // is kept beside it for the helper ("update.tar.gz.sig"); on a failed check that folder is
    // removed. Completes with the package path.
    void download(const AppUpdateManifest& manifest,
                  std::function<void(UpdateResult<QString>)> completion);

    // Starts a copy of the bundle's update helper for the verified package. On success the
    // caller must end the process promptly: the helper waits for that.
    void installAndRestart(std::function<void(std::optional<UpdateFailure>)> completion);

    bool isNewer(const AppUpdateManifest& manifest) const;
    bool isSupported(const AppUpdateManifest& manifest) const;

  private:
    QNetworkReply* startTransfer(const QUrl& url, const char* accept, int timeoutMilliseconds);
    void finishCheck(QNetworkReply* reply,
                     const std::function<void(UpdateResult<AppUpdateCheckResult>)>& completion);
    void finishDownload(QNetworkReply* reply, const AppUpdateManifest& manifest,
                        const std::function<void(UpdateResult<QString>)>& completion);
    UpdateResult<QString> storeVerifiedPackage(const QString& downloaded,
                                               const AppUpdateManifest& manifest);
    std::optional<UpdateFailure> launchHelper();
    void setState(AppUpdaterState state);

    QUrl manifestURL_;
    UpdaterEnvironment environment_;
    QNetworkAccessManager network_;
    QPointer<QNetworkReply> activeTask_;
    std::unique_ptr<QTemporaryFile> download_;  // the transfer's file until it is moved
    AppUpdaterState state_ = AppUpdaterState::idle;
    std::optional<AppUpdateManifest> readyUpdate_;
    std::optional<QString> downloadedPackage_;
};

}  // namespace velt
