#include "ui/tray_menu.h"

#include "app/app_store.h"
#include "model/constants.h"

#include <QTimer>

namespace velt::ui {

std::vector<TrayMenuEntry> trayMenuEntries(const AppStore& store) {
    const AppLanguage language = store.config().language;
    const auto t = [language](Text id) { return text(language, id); };
    const bool hasFolder = store.config().watchDirectory.has_value();
    const auto id = [](TrayCommand command) { return static_cast<int>(command); };
    return {
        {id(TrayCommand::showPanel), t(Text::trayShowPanel)},
        {id(TrayCommand::toggleCompression),
         t(store.isRunning() ? Text::trayPause : Text::trayResume), hasFolder},
        {id(TrayCommand::openFolder), t(Text::panelOpenFolder), hasFolder},
        {id(TrayCommand::history), t(Text::panelHistory)},
        {id(TrayCommand::settings), t(Text::panelSettings)},
        {0, QString()},
        {id(TrayCommand::quit), text(language, Text::panelQuit, {appName})},
    };
}

TrayMenu::TrayMenu(std::function<void(TrayCommand)> onCommand) : onCommand_(std::move(onCommand)) {}

void TrayMenu::setEntries(const std::vector<TrayMenuEntry>& entries) {
    if (actions().isEmpty()) {
        for (const TrayMenuEntry& entry : entries) {
            if (entry.isSeparator()) {
                addSeparator();
                continue;
            }
            QAction* action = addAction(QString());
            const auto command = static_cast<TrayCommand>(entry.id);
            connect(action, &QAction::triggered, this, [this, command] {
                QTimer::singleShot(0, this, [this, command] { onCommand_(command); });
            });
        }
    }
    const QList<QAction*> current = actions();
    for (qsizetype i = 0; i < current.size() && i < qsizetype(entries.size()); ++i) {
        current[i]->setText(entries[size_t(i)].label);
        current[i]->setEnabled(entries[size_t(i)].enabled);
    }
}

}  // namespace velt::ui
