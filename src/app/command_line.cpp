#include "app/command_line.h"

#include "app/version.h"
#include "model/constants.h"

namespace velt {

std::variant<CommandLineRequest, CommandLineError> parseCommandLine(const QStringList& arguments) {
    CommandLineRequest request;
    for (const QString& argument : arguments) {
        if (argument == QLatin1String("--version")) {
            request.action = CommandLineRequest::Action::showVersion;
        } else if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
            return CommandLineRequest{CommandLineRequest::Action::showHelp};
        } else {
            return CommandLineError{QStringLiteral("unknown option: ") + argument};
        }
    }
    return request;
}

QString usageText() {
    return QStringLiteral(
        "Usage: velt-compressor [--help] [--version]\n"
        "\n"
        "Watches one folder and compresses every new image that lands in it.\n"
        "\n"
        "Options:\n"
        "  -h, --help     show this help and exit\n"
        "  --version      print the version and exit\n"
        "\n"
        "Environment:\n"
        "  VELT_CONFIG_DIR   folder of the settings, history and registry files\n"
        "                    (default: ~/.local/share/velt compressor)\n"
        "  VELT_LOG_DIR      folder of native.log (default: the same folder)\n"
        "  VELT_DEBUG_LOG    1, true or yes: also write debug lines to the log\n");
}

QString versionText() {
    return appName + QLatin1Char(' ') + QString::fromLatin1(veltVersion);
}

}  // namespace velt
