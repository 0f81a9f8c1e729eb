// AppStore: the one object that holds the application's state and carries out the user's
// commands. It owns the settings, the history and live statistics, the folder compression engine
// the notification manager and the self-updater. Views read its state and change it only through
// its operations; they are told to refresh through onChange. Dialogs reach the user through a
// Presenter.
//
// Everything here runs on the main thread. The engine reports on its own queue; the store
// re-posts each report to the main thread, holding itself weakly, so a report arriving after
// the store is gone does nothing.
//
// REQUIRES: a QCoreApplication exists for the store's whole life.
#pragma once

#include "app/presenter.h"
#include "app/settings_overrides.h"
#include "engine/pipeline/backup_retention.h"
#include "engine/watcher/folder_compressor.h"
#include "model/history.h"
#include "model/settings.h"
#include "notifications/notification_manager.h"
#include "update/app_updater.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <exception>
#include <functional>
#include <memory>
#include <optional>

namespace velt {

class AppStore : public QObject {
  public:
    struct Services {
        std::unique_ptr<FolderCompressor> compressor;              // a new engine when empty
        std::unique_ptr<NotificationManager> notificationManager;  // the desktop one when empty
    };

    // Loads the settings and the history and wires the engine's reports; does not start it.
    // `updater` defaults to one for the published manifest.
    explicit AppStore(Presenter* presenter = nullptr, Services services = {},
                      std::unique_ptr<AppUpdater> updater = nullptr);
    ~AppStore() override;

    std::function<void()> onChange;
    std::function<void(const CompressionNotificationEvent&)> onNotice;
    // Ends the process once the update helper has started; QCoreApplication::exit(0) when unset.
    std::function<void()> onTerminateForUpdate;

    const CompressionStats& stats() const { return stats_; }
    FolderCompressor& compressor() { return *compressor_; }
    NotificationManager& notificationManager() { return *notificationManager_; }
    const CompressionHistory& history() const { return history_; }
    // Why watching could not start, shown in the panel in the language of the moment.
    const std::optional<Message>& watcherError() const { return watcherError_; }
    // Whether the last start failed because another process's engine holds the folder.
    bool watcherFolderBusy() const { return watcherFolderBusy_; }
    const AppConfig& config() const { return config_; }
    bool isRunning() const { return compressor_->isRunning(); }
    AppUpdater& updater() { return *updater_; }
    bool isUpdateBusy() const { return updater_->isBusy(); }
    // The update button's title for the updater's state, in the interface language.
    QString updateButtonTitle() const;

    // Replaces the settings and runs the change procedure: save, login item, engine restart
    // when the engine's settings changed, onChange.
    void setConfig(const AppConfig& config);

    // Settings for this run only, applied to what the engine receives; never saved.
    void setSessionOverrides(const SettingsOverrides& overrides) { overrides_ = overrides; }
    AppConfig engineConfig() const { return overrides_.appliedTo(config_); }

    // The user's switch: saves enabled = true and starts watching the stored folder; a missing
    // or protected folder or a failed start is reported through watcherError.
    void start();
    // What a launch does: starts watching only when compression is switched on and a folder is
    // stored, never changing `enabled` (a stop the user made stays made).
    enum class LaunchStart { started, switchedOff, noFolder, failed };
    LaunchStart startOnLaunch();
    // The user's stop: saves enabled = false and stops the engine.
    void stop();
    // Stops the engine at the end of the process, leaving the saved settings as they are.
    void shutdown();

    // Asks the presenter for a folder and uses it.
    void selectWatchDirectory(QObject* window = nullptr);
    // Makes `path` the watched folder as picking it in the folder dialog does: enabled, folder
    // and bookmark saved, the engine restarted or started.
    void useWatchDirectory(const QString& path);
    void openWatchDirectory();
    void openBackupDirectory();
    // Shows a file or folder in the file browser; an alert naming it when nothing could.
    void showInFileBrowser(const QString& path);
    void clearBackups(QObject* window = nullptr);
    // The files in the watched folder's backups and their size; none without a folder.
    BackupUsage backupUsage() const;
    // "Compress the folder again": after the user confirms, every photo in the stored folder is
    // compressed again with the settings in force, from its original (see
    // FolderCompressor::compressAgain); the engine is started when it is not running.
    void compressFolderAgain(QObject* window = nullptr);

    // Undoes the compression of `file` (a history row's source or output) on the engine's queue:
    // a replaced original back from its verified backup, a kept original's copy removed. When the
    // original's name is taken by another file the user is asked whether to restore it beside
    // that file; a refusal or failure is shown in one alert. The history gets the entry.
    void restore(const QString& file, QObject* window = nullptr, bool besideWhenTaken = false);

    // Compresses the files and folders the user dropped, now, with the settings in force (see
    // FolderCompressor::compressDropped); outputs follow the original policy beside each file.
    void compressDropped(const QStringList& paths);

    void setAutostart(bool on);
    void setShowMenuBarProgress(bool on);
    void setNotificationsEnabled(bool on);
    void setLanguage(AppLanguage language);

    void recordHistory(const CompressionHistoryEntry& entry);
    void saveHistory();
    void clearHistory();
    void save();

    // The user's update check (nothing while the updater is busy): offers a waiting verified
    // update at once, else asks the server. An offered update the user accepts is downloaded,
    // the engine stopped and the helper started, and the process ends; on failure the engine
    // is started again if it ran, and the error alert is shown. Alerts belong to `window`.
    void checkUpdates(QObject* window = nullptr);
    void openWebsite();

    // The stored folder: the bookmark's path, else watchDirectory.
    std::optional<QString> resolvedWatchDirectory() const;
    // Whether the folder lies in a protected user folder and was stored without a bookmark.
    bool storedDirectoryNeedsFreshSelection(const QString& resolved) const;

  private:
    void wireEngine();
    void wireUpdater();
    void offerUpdate(const AppUpdateManifest& manifest, QObject* window);
    void downloadAndInstall(const AppUpdateManifest& manifest, QObject* window);
    void install(QObject* window);
    void showUpdateError(const UpdateFailure& failure, QObject* window);
    void configChanged(const AppConfig& old);
    void updateLoginItem();
    void restartIfNeeded();
    void handleWatcherFailure(const std::exception& error);
    void restoreFailed(std::exception_ptr error, const QString& file, QObject* window,
                       bool besideWhenTaken);
    void showMissingFolderAlert();
    void sendNotification(const CompressionNotificationEvent& event);
    void changed();
    QString text(Text id, const QStringList& arguments = {}) const;
    void showAlert(Text message, const QString& informativeText, QObject* window = nullptr);

    Presenter* presenter_;
    CompressionStats stats_;
    std::unique_ptr<FolderCompressor> compressor_;
    std::unique_ptr<NotificationManager> notificationManager_;
    std::unique_ptr<AppUpdater> updater_;
    CompressionHistory history_;
    std::optional<Message> watcherError_;
    bool watcherFolderBusy_ = false;
    AppConfig config_;
    SettingsOverrides overrides_;
};

// The user's Desktop, Documents, Downloads, Movies, Music and Pictures folders, in that order,
// standardised (XDG user folders).
QStringList protectedUserFolders();
// True when `path`, standardised, equals one of `folders` or lies inside one.
bool isInsideProtectedFolder(const QString& path, const QStringList& folders);

}  // namespace velt
