// The program's command line: what the user asked for, or why the arguments are wrong.
#pragma once

#include <QString>
#include <QStringList>
#include <variant>

namespace velt {

struct CommandLineRequest {
    enum class Action { run, showVersion, showHelp };
    Action action = Action::run;
};

// A one-line reason, printed before the usage; the program then exits 2.
struct CommandLineError {
    QString message;
};

// `arguments` excludes the program name.
std::variant<CommandLineRequest, CommandLineError> parseCommandLine(const QStringList& arguments);

QString usageText();
QString versionText();

}  // namespace velt
