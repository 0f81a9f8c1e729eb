#include "app/command_line.h"

#include <QCoreApplication>
#include <QTextStream>
#include <cstdio>

int main(int argc, char* argv[]) {
    QStringList arguments;
    for (int i = 1; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);

    QTextStream out(stdout);
    QTextStream err(stderr);
    const auto parsed = velt::parseCommandLine(arguments);
    if (const auto* error = std::get_if<velt::CommandLineError>(&parsed)) {
        err << "velt-compressor: " << error->message << "\n\n" << velt::usageText();
        return 2;
    }
    const auto& request = std::get<velt::CommandLineRequest>(parsed);
    switch (request.action) {
        case velt::CommandLineRequest::Action::showVersion:
            out << velt::versionText() << '\n';
            return 0;
        case velt::CommandLineRequest::Action::showHelp:
        case velt::CommandLineRequest::Action::run:
            // Nothing runs yet beyond the command line itself.
            out << velt::usageText();
            return 0;
    }
    return 0;
}
