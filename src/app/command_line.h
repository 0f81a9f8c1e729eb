// The program's command line: what the user asked for, or why the arguments are wrong.
//
// Parsing also checks that the folders named exist, so that a mistyped folder ends the program
// before anything is read or written.
#pragma once

#include "app/settings_overrides.h"
#include "model/text_catalogue.h"

#include <QString>
#include <QStringList>
#include <optional>
#include <variant>

namespace velt {

struct CommandLineRequest {
    enum class Action {
        run,          // the desktop program (headless without a desktop session)
        showVersion,  // --version
        showHelp,     // --help
        headless,     // --headless [--watch DIR]
        once,         // --once DIR
        update,       // --update
        restore,      // --restore FILE
    };
    // A part of the desktop program to open (--show-panel, --settings, --history): in the copy
    // already running, or in this one once it has started.
    enum class DesktopPart { panel, settings, history };

    Action action = Action::run;
    std::optional<DesktopPart> open;
    std::optional<QString> watchDirectory;  // --watch, absolute
    QString onceDirectory;                  // --once, absolute
    QString restoreFile;                    // --restore, absolute (it need not exist)
    std::optional<int> jobs;                // --jobs, at least 1; only with --once
    bool redo = false;                      // --redo; only with --once
    SettingsOverrides overrides;            // for this run only

    bool operator==(const CommandLineRequest&) const = default;
};

// A one-line reason, printed with a pointer to --help; the program then exits 2.
struct CommandLineError {
    Message message;
};

// `arguments` excludes the program name. Options take their value as the next argument or after
// "=" ("--preset gentle", "--preset=gentle").
std::variant<CommandLineRequest, CommandLineError> parseCommandLine(const QStringList& arguments);

QString usageText(AppLanguage language);
QString versionText();

}  // namespace velt
