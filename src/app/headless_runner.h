// The headless program: the store without a tray. Watches the saved folder while compression is
// switched on (or the one given with --watch, which is saved as the chosen folder and switches it
// on) until SIGINT, SIGTERM or SIGHUP, then stops the engine and exits 0. With --update it checks
// for a newer release instead and installs it. What a desktop would show
// — notices, alerts, finished files — is written to standard error, one line each.
//
// Main thread only. REQUIRES: a QCoreApplication exists.
#pragma once

#include "app/command_line.h"
#include "app/presenter.h"
#include "model/app_language.h"

#include <QTextStream>
#include <QUuid>

namespace velt {

class AppStore;

class HeadlessRunner final : public Presenter {
  public:
    HeadlessRunner();

    // Runs the event loop; returns the process's exit code: 0 after a signal or the launch
    // smoke test, and at once when compression is switched off (without --watch); 2 when there
    // is no folder to watch or another process already compresses it, 1 when watching could not
    // start.
    int run(const CommandLineRequest& request);

    void showAlert(const QString& message, const QString& informativeText, const QString& button,
                   QObject* window) override;
    bool confirm(const QString& message, const QString& informativeText,
                 const QString& confirmButton, const QString& cancelButton,
                 QObject* window) override;
    void showInFileBrowser(const QString& path, std::function<void()> notShown) override;
    void openURL(const QString& url) override;
    std::optional<QString> chooseFolder(const QString& title, const QString& startFolder,
                                        QObject* window) override;

  private:
    void line(const QString& text);
    void reportNewHistory(const AppStore& store);
    int runUpdate(AppStore& store);

    QTextStream err_;
    AppLanguage language_ = AppLanguage::russian;  // the saved one, once the store has loaded it
    QUuid lastReported_;
    bool acceptUpdate_ = false;  // --update: the offered update is taken without asking
};

}  // namespace velt
