// For tests of the store (and of the windows over it): temporary data, XDG config and watched
// folders without desktop notifications, and a presenter that answers from a script.
#pragma once

#include "app/presenter.h"
#include "support/test_environment.h"

#include <QStringList>
#include <QTemporaryDir>
#include <deque>
#include <vector>

namespace velt::testing {

struct StoreFixture {
    IsolatedDataFolder data;
    ScopedEnvironment xdgConfig{"XDG_CONFIG_HOME", data.file(QStringLiteral("xdg")).toUtf8()};
    ScopedEnvironment noSessionBus{"DBUS_SESSION_BUS_ADDRESS", std::nullopt};
    QTemporaryDir folder;
};

// Records every dialog the store shows and every folder or page it opens; confirm() answers
// from `confirmAnswers` (cancel once they run out); with `noFileBrowser` nothing shows a folder.
class ScriptedPresenter : public Presenter {
  public:
    struct Dialog {
        QString message, informativeText, buttons;  // buttons: "Confirm|Cancel" for a question
        QObject* window;
    };
    std::deque<bool> confirmAnswers;
    std::vector<Dialog> dialogs;
    QStringList opened;
    QStringList chooserStartFolders;
    bool noFileBrowser = false;

    QString lastMessage() const { return dialogs.empty() ? QString() : dialogs.back().message; }

    void showAlert(const QString& message, const QString& informativeText, const QString& button,
                   QObject* window) override {
        dialogs.push_back({message, informativeText, button, window});
    }
    bool confirm(const QString& message, const QString& informativeText,
                 const QString& confirmButton, const QString& cancelButton,
                 QObject* window) override {
        dialogs.push_back({message, informativeText, confirmButton + u'|' + cancelButton, window});
        if (confirmAnswers.empty()) return false;
        const bool answer = confirmAnswers.front();
        confirmAnswers.pop_front();
        return answer;
    }
    void showInFileBrowser(const QString& path, std::function<void()> notShown) override {
        if (noFileBrowser) return notShown();
        opened << path;
    }
    void openURL(const QString& url) override { opened << url; }
    std::optional<QString> chooseFolder(const QString& title, const QString& startFolder,
                                        QObject* window) override {
        dialogs.push_back({title, {}, {}, window});
        chooserStartFolders << startFolder;
        return std::nullopt;
    }
};

}  // namespace velt::testing
