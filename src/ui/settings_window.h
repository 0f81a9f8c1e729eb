// The settings window: launch at login, interface language, progress in the tray, system
// notifications, the compression folder, the photo metadata kept in outputs, the backups, and the
// version with the update check.
// Everything is read from and written through the store; the whole content is rebuilt when the
// interface language changes. The window is made once and reused after it is closed.
//
// Main thread only.
#pragma once

#include "model/app_language.h"

#include <QWidget>
#include <memory>
#include <optional>

class QComboBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace velt {
class AppStore;
}

namespace velt::ui {

class SwitchControl;

// "3.0.0" shows as "3.0"; every other version as it is; an empty one as "1.0".
QString displayVersion(const QString& version);

class SettingsViewController : public QWidget {
  public:
    explicit SettingsViewController(AppStore& store, QWidget* parent = nullptr);

    void render();

    SwitchControl* autostartSwitch() const { return autostartSwitch_; }
    SwitchControl* menuBarProgressSwitch() const { return menuBarProgressSwitch_; }
    SwitchControl* notificationsSwitch() const { return notificationsSwitch_; }
    QComboBox* languagePopup() const { return languagePopup_; }
    QComboBox* metadataPopup() const { return metadataPopup_; }
    QComboBox* retentionPopup() const { return retentionPopup_; }
    QLabel* backupUsageLabel() const { return backupUsageLabel_; }
    // Counts the backups again (a walk of the backup folder: on opening and on a change only).
    void showBackupUsage();
    QPushButton* updateButton() const { return updateButton_; }
    // Every button of the content, by its text (the tests press them).
    QPushButton* button(const QString& text) const;
    QWidget* contentHost() const { return contentHost_; }

  private:
    void rebuildContent(AppLanguage language);

    AppStore& store_;
    QWidget* contentHost_ = nullptr;
    std::optional<AppLanguage> lastRenderedLanguage_;
    SwitchControl* autostartSwitch_ = nullptr;
    SwitchControl* menuBarProgressSwitch_ = nullptr;
    SwitchControl* notificationsSwitch_ = nullptr;
    QComboBox* languagePopup_ = nullptr;
    QComboBox* metadataPopup_ = nullptr;
    QComboBox* retentionPopup_ = nullptr;
    QLabel* backupUsageLabel_ = nullptr;
    QPushButton* updateButton_ = nullptr;
};

class SettingsWindowController {
  public:
    explicit SettingsWindowController(AppStore& store);
    ~SettingsWindowController();
    void showWindow();
    void render();
    QWidget* window() const { return window_.get(); }
    SettingsViewController* settingsViewController() const { return view_; }

  private:
    void fitToContent();

    AppStore& store_;
    std::unique_ptr<QWidget> window_;
    SettingsViewController* view_;
    std::optional<AppLanguage> fittedLanguage_;
};

}  // namespace velt::ui
