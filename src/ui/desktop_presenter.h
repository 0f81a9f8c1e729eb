// DesktopPresenter: the store's dialogs as the desktop shows them — message boxes, the folder
// dialog, the file manager and the browser. A dialog given a visible window is window-modal on
// it (a sheet); otherwise it stands alone.
//
// Main thread only.
#pragma once

#include "app/presenter.h"

namespace velt::ui {

class DesktopPresenter : public Presenter {
  public:
    void showAlert(const QString& message, const QString& informativeText, const QString& button,
                   QObject* window) override;
    bool confirm(const QString& message, const QString& informativeText,
                 const QString& confirmButton, const QString& cancelButton,
                 QObject* window) override;
    void showInFileBrowser(const QString& path, std::function<void()> notShown) override;
    void openURL(const QString& url) override;
    std::optional<QString> chooseFolder(const QString& title, const QString& startFolder,
                                        QObject* window) override;
};

}  // namespace velt::ui
