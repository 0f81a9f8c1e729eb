// Presenter: what the store asks of a user interface — alerts, a confirmation, opening a folder
// in the file browser or a web page, choosing a folder. The desktop UI implements it with dialogs;
// the headless runner by writing to standard error; tests with fakes. The store itself knows no
// widget.
//
// `window` is the UI's own handle of the window a dialog belongs to (nothing for a free-standing
// dialog); the store passes it through untouched.
//
// Called on the main thread only.
#pragma once

#include <QString>
#include <functional>
#include <optional>

class QObject;

namespace velt {

class Presenter {
  public:
    virtual ~Presenter() = default;

    // An informational alert with one acknowledging button.
    virtual void showAlert(const QString& message, const QString& informativeText,
                           const QString& button, QObject* window) = 0;

    // A warning-style question; true when the user chose `confirmButton`.
    virtual bool confirm(const QString& message, const QString& informativeText,
                         const QString& confirmButton, const QString& cancelButton,
                         QObject* window) = 0;

    // Shows `path` in the file browser: a folder opened, a file selected in its folder. Calls
    // `notShown` later, on the main thread, when nothing on the system could show it (no file
    // manager installed).
    virtual void showInFileBrowser(const QString& path, std::function<void()> notShown) = 0;

    // Opens a web page in the user's browser.
    virtual void openURL(const QString& url) = 0;

    // The folder dialog, opened in `startFolder`: directories only, folder creation allowed, one
    // selection. Nothing when the user cancelled.
    virtual std::optional<QString> chooseFolder(const QString& title, const QString& startFolder,
                                                QObject* window) = 0;
};

}  // namespace velt
