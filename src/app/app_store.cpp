#include "app/app_store.h"

#include "engine/core/errors.h"
#include "model/config_file.h"
#include "model/constants.h"
#include "model/file_url.h"
#include "model/native_log.h"
#include "platform/folder_bookmark.h"
#include "platform/login_item.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QStandardPaths>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace velt {
namespace {

QString boolText(bool value) {
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

// Runs `work` on the main thread later, only while `store` still exists. Posted to the
// application object, which outlives the store, so a report racing the store's destruction is
// dropped instead of reaching a dead object.
template <typename Work>
void postToStore(const QPointer<AppStore>& store, Work work) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [store, work = std::move(work)]() mutable {
            if (store) work(*store);
        },
        Qt::QueuedConnection);
}

}  // namespace

QStringList protectedUserFolders() {
    QStringList folders;
    for (const auto location : {QStandardPaths::DesktopLocation, QStandardPaths::DocumentsLocation,
                                QStandardPaths::DownloadLocation, QStandardPaths::MoviesLocation,
                                QStandardPaths::MusicLocation, QStandardPaths::PicturesLocation}) {
        const QString first = QStandardPaths::standardLocations(location).value(0);
        if (!first.isEmpty()) folders << standardizedPath(first);
    }
    return folders;
}

bool isInsideProtectedFolder(const QString& path, const QStringList& folders) {
    const QString standardized = standardizedPath(path);
    for (const QString& folder : folders) {
        if (standardized == folder || standardized.startsWith(folder + QLatin1Char('/')))
            return true;
    }
    return false;
}

AppStore::AppStore(Presenter* presenter, Services services, std::unique_ptr<AppUpdater> updater)
    : presenter_(presenter),
      compressor_(services.compressor ? std::move(services.compressor)
                                      : std::make_unique<FolderCompressor>()),
      notificationManager_(services.notificationManager ? std::move(services.notificationManager)
                                                        : std::make_unique<NotificationManager>()),
      updater_(updater ? std::move(updater) : std::make_unique<AppUpdater>()) {
    config_ = loadAppConfig();
    history_ = loadHistory();
    NativeLog::write(QStringLiteral("Config loaded watch=") +
                     config_.watchDirectory.value_or(QStringLiteral("-")) +
                     QStringLiteral(" enabled=") + boolText(config_.enabled));
    wireEngine();
    wireUpdater();
}

AppStore::~AppStore() {
    // The engine's last reports are posted with a weak reference and dropped once we are gone.
    compressor_->stop();
}

void AppStore::wireEngine() {
    const QPointer<AppStore> weak(this);
    compressor_->callbacks.onStats = [weak](const CompressionStats& stats) {
        postToStore(weak, [stats](AppStore& store) {
            store.stats_ = stats;
            store.changed();
        });
    };
    compressor_->callbacks.onEvent = [weak](const CompressionNotificationEvent& event) {
        postToStore(weak, [event](AppStore& store) {
            if (store.onNotice) store.onNotice(event);
            if (event.allowsSystemNotification()) store.sendNotification(event);
        });
    };
    compressor_->callbacks.onHistory = [weak](const CompressionHistoryEntry& entry) {
        postToStore(weak, [entry](AppStore& store) { store.recordHistory(entry); });
    };
}

QString AppStore::text(Text id, const QStringList& arguments) const {
    return velt::text(config_.language, id, arguments);
}

void AppStore::showAlert(Text message, const QString& informativeText, QObject* window) {
    if (presenter_)
        presenter_->showAlert(text(message), informativeText, text(Text::buttonOK), window);
}

void AppStore::changed() {
    if (onChange) onChange();
}

void AppStore::sendNotification(const CompressionNotificationEvent& event) {
    notificationManager_->send(config_, event);
}

std::optional<QString> AppStore::resolvedWatchDirectory() const {
    // A bookmark is the path the user picked; one that names no path falls back to the folder.
    if (config_.watchDirectoryBookmark) {
        if (auto path = resolveFolderBookmark(*config_.watchDirectoryBookmark)) return path;
    }
    return config_.watchDirectory;
}

bool AppStore::storedDirectoryNeedsFreshSelection(const QString& resolved) const {
    if (config_.watchDirectoryBookmark) return false;
    return isInsideProtectedFolder(resolved, protectedUserFolders());
}

void AppStore::setConfig(const AppConfig& config) {
    const AppConfig old = config_;
    config_ = config;
    configChanged(old);
}

void AppStore::configChanged(const AppConfig& old) {
    save();
    if (config_.autostart != old.autostart) updateLoginItem();
    if (config_.requiresCompressorRestart(old)) restartIfNeeded();
    changed();
}

// A failure leaves the setting as the user chose it; the error count is its only trace.
void AppStore::updateLoginItem() {
    const bool registered = loginItemRegistered();
    bool succeeded = true;
    if (config_.autostart && !registered) {
        succeeded = registerLoginItem();
    } else if (!config_.autostart && registered) {
        succeeded = unregisterLoginItem();
    }
    if (!succeeded) stats_.errors += 1;
}

void AppStore::start() {
    const auto folder = resolvedWatchDirectory();
    if (!folder) {
        watcherError_ = Message{Text::watcherNoFolder, {}};
        changed();
        return;
    }
    if (storedDirectoryNeedsFreshSelection(*folder)) {
        NativeLog::write(QStringLiteral("Start skipped: folder needs system selection ") + *folder);
        watcherError_ = Message{Text::watcherNeedsSelection, {}};
        changed();
        return;
    }
    if (!config_.enabled) {
        AppConfig enabled = config_;
        enabled.enabled = true;
        setConfig(enabled);
    }
    NativeLog::write(QStringLiteral("Start watcher ") + *folder);
    try {
        compressor_->start(engineConfig(), *folder);
        watcherError_.reset();
    } catch (const std::exception& error) {
        handleWatcherFailure(error);
    }
    changed();
}

AppStore::LaunchStart AppStore::startOnLaunch() {
    if (!resolvedWatchDirectory()) {
        start();  // sets the "choose a folder" error the panel shows
        return LaunchStart::noFolder;
    }
    // The user's stop is kept across launches: only a running watch is resumed.
    if (!config_.enabled) {
        NativeLog::write(QStringLiteral("Start on launch skipped: compression is switched off"));
        return LaunchStart::switchedOff;
    }
    start();
    return isRunning() ? LaunchStart::started : LaunchStart::failed;
}

void AppStore::stop() {
    NativeLog::write(QStringLiteral("Stop watcher"));
    if (config_.enabled) {
        AppConfig disabled = config_;
        disabled.enabled = false;
        setConfig(disabled);
    }
    compressor_->stop();
    changed();
}

void AppStore::shutdown() {
    NativeLog::write(QStringLiteral("Shutdown: stopping watcher"));
    compressor_->stop();
}

void AppStore::restartIfNeeded() {
    if (!compressor_->isRunning()) return;
    const auto folder = resolvedWatchDirectory();
    if (!folder || storedDirectoryNeedsFreshSelection(*folder)) return;
    try {
        compressor_->start(engineConfig(), *folder);
        watcherError_.reset();
    } catch (const std::exception& error) {
        handleWatcherFailure(error);
    }
}

void AppStore::handleWatcherFailure(const std::exception& error) {
    watcherFolderBusy_ = dynamic_cast<const FolderBusyError*>(&error) != nullptr;
    NativeLog::write(QStringLiteral("Watcher failed ") + errorDescription(error));
    watcherError_ = reasonOf(error);
    stats_.errors += 1;
    const auto event = CompressionNotificationEvent::watcherFailed(*watcherError_);
    if (onNotice) onNotice(event);
    if (event.allowsSystemNotification()) sendNotification(event);
    changed();
}

void AppStore::selectWatchDirectory(QObject* window) {
    NativeLog::write(QStringLiteral("Select watch directory requested"));
    if (!presenter_) return;
    // The dialog starts where the user is likely to look: the folder in use, else Pictures.
    QString start = resolvedWatchDirectory().value_or(QString());
    if (start.isEmpty() || !QFileInfo(start).isDir())
        start = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    if (!QFileInfo(start).isDir()) start = QDir::homePath();
    const auto chosen = presenter_->chooseFolder(text(Text::chooseFolderTitle), start, window);
    NativeLog::write(QStringLiteral("Select watch directory response=") +
                     QString::number(chosen ? 1 : 0));
    if (chosen) useWatchDirectory(*chosen);
}

void AppStore::useWatchDirectory(const QString& path) {
    const bool wasRunning = compressor_->isRunning();
    const QString absolute = QFileInfo(path).absoluteFilePath();
    AppConfig picked = config_;
    picked.enabled = true;
    picked.watchDirectory = absolute;
    picked.watchDirectoryBookmark = makeFolderBookmark(absolute);
    setConfig(picked);  // restarts a running engine on the new folder
    if (!wasRunning) start();
}

void AppStore::openWatchDirectory() {
    const auto folder = resolvedWatchDirectory();
    if (folder && QFileInfo(*folder).isDir()) {
        showInFileBrowser(*folder);
        return;
    }
    showMissingFolderAlert();
}

void AppStore::showInFileBrowser(const QString& path) {
    if (!presenter_) return;
    const QPointer<AppStore> weak(this);
    presenter_->showInFileBrowser(path, [weak, path] {
        if (!weak) return;
        NativeLog::write(QStringLiteral("Nothing could show ") + path);
        weak->presenter_->showAlert(weak->text(Text::openFailedTitle, {QFileInfo(path).fileName()}),
                                    weak->text(Text::openFailedExplanation, {path}),
                                    weak->text(Text::buttonOK), nullptr);
    });
}

void AppStore::showMissingFolderAlert() {
    showAlert(Text::missingFolderTitle, text(Text::missingFolderExplanation, {appName}));
}

void AppStore::openBackupDirectory() {
    const auto folder = resolvedWatchDirectory();
    if (!folder) {
        showMissingFolderAlert();
        return;
    }
    const QString backups = QDir(*folder).filePath(backupDirName);
    if (QFileInfo(backups).isDir()) {
        showInFileBrowser(backups);
        return;
    }
    showAlert(Text::noBackupsTitle, text(Text::noBackupsExplanation));
}

void AppStore::compressFolderAgain(QObject* window) {
    if (!resolvedWatchDirectory()) {
        showMissingFolderAlert();
        return;
    }
    if (!presenter_ || !presenter_->confirm(
                           text(Text::compressAgainQuestion), text(Text::compressAgainExplanation),
                           text(Text::compressAgainConfirm), text(Text::buttonCancel), window))
        return;
    NativeLog::write(QStringLiteral("Compress the folder again requested"));
    compressor_->compressAgain();
    if (!compressor_->isRunning()) start();
}

void AppStore::clearBackups(QObject* window) {
    const auto folder = resolvedWatchDirectory();
    if (!folder) {
        showMissingFolderAlert();
        return;
    }
    if (!presenter_) return;
    const QString backups = QDir(*folder).filePath(backupDirName);
    if (!QFileInfo::exists(backups)) {
        showAlert(Text::noBackupsTitle, text(Text::backupFolderEmpty), window);
        return;
    }
    const bool confirmed =
        presenter_->confirm(text(Text::clearBackupsQuestion), text(Text::clearBackupsExplanation),
                            text(Text::buttonClear), text(Text::buttonCancel), window);
    if (!confirmed) return;
    std::error_code error;
    std::filesystem::remove_all(std::filesystem::path(QFile::encodeName(backups).toStdString()),
                                error);
    if (error) {
        // The C library's English text, whatever the locale: the log is English.
        NativeLog::write(QStringLiteral("Clear backups failed: ") +
                         QString::fromUtf8(::strerrordesc_np(error.value())));
        presenter_->showAlert(text(Text::clearBackupsFailed, {backupDirName}),
                              text(Text::clearBackupsFailedExplanation), text(Text::buttonOK),
                              window);
    }
}

void AppStore::setAutostart(bool on) {
    AppConfig changedConfig = config_;
    changedConfig.autostart = on;
    changedConfig.autostartAsked = true;
    setConfig(changedConfig);
}

void AppStore::setShowMenuBarProgress(bool on) {
    AppConfig changedConfig = config_;
    changedConfig.showMenuBarProgress = on;
    setConfig(changedConfig);
}

void AppStore::setNotificationsEnabled(bool on) {
    AppConfig changedConfig = config_;
    changedConfig.notificationsEnabled = on;
    setConfig(changedConfig);
    if (on) notificationManager_->requestAuthorizationIfNeeded();
}

void AppStore::setLanguage(AppLanguage language) {
    AppConfig changedConfig = config_;
    changedConfig.language = language;
    setConfig(changedConfig);
}

void AppStore::recordHistory(const CompressionHistoryEntry& entry) {
    insertNewest(history_, entry);
    saveHistory();
    changed();
}

void AppStore::saveHistory() {
    velt::saveHistory(history_);
}

void AppStore::clearHistory() {
    history_.clear();
    saveHistory();
    changed();
}

void AppStore::save() {
    saveAppConfig(config_);
}

}  // namespace velt
