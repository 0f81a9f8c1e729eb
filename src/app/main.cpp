#include "app/command_line.h"
#include "app/headless_runner.h"
#include "app/once_runner.h"
#include "app/restore_command.h"
#include "imageio/codec_plugins.h"
#include "model/config_file.h"
#include "platform/batch_memory.h"
#include "platform/display_probe.h"
#include "platform/utf8_locale.h"
#include "ui/desktop_shell.h"

#include <QCoreApplication>
#include <QTextStream>
#include <cstdio>

int main(int argc, char* argv[]) {
    velt::useUtf8Locale();
    velt::imageio::useBundledCodecPlugins();
    QStringList arguments;
    for (int i = 1; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);

    QTextStream out(stdout);
    QTextStream err(stderr);
    // The command line speaks the language of the settings, not of the environment: the program
    // is Russian unless English was chosen.
    const velt::AppLanguage language = velt::loadAppConfig().language;
    // Everything is checked before anything is written.
    const auto parsed = velt::parseCommandLine(arguments);
    if (const auto* error = std::get_if<velt::CommandLineError>(&parsed)) {
        err << "velt-compressor: " << error->message.inLanguage(language) << '\n'
            << velt::text(language, velt::Text::usageSeeHelp) << '\n';
        return 2;
    }
    const auto& request = std::get<velt::CommandLineRequest>(parsed);
    using Action = velt::CommandLineRequest::Action;
    switch (request.action) {
        case Action::showVersion:
            out << velt::versionText() << '\n';
            return 0;
        case Action::showHelp:
            out << velt::usageText(language);
            return 0;
        case Action::once: {
            // Before any thread exists: the C library fixes its arenas at a thread's first
            // allocation.
            velt::keepFreedMemoryForReuse();
            QCoreApplication application(argc, argv);
            return velt::runOnceCommand(request);
        }
        case Action::restore: {
            QCoreApplication application(argc, argv);
            return velt::runRestoreCommand(request);
        }
        case Action::run: {
            // A display that does not answer would abort the toolkit: headless instead.
            QString tried;
            if (const auto display = velt::reachableDisplay(&tried)) {
                if (!display->platform.isEmpty())
                    qputenv("QT_QPA_PLATFORM", display->platform.toLatin1());
                return velt::ui::runDesktopProgram(argc, argv, request);
            }
            err << "velt-compressor: "
                << (tried.isEmpty()
                        ? velt::text(language, velt::Text::headlessNoDisplay)
                        : velt::text(language, velt::Text::headlessDisplayUnreachable, {tried}))
                << '\n';
            err.flush();
            [[fallthrough]];
        }
        case Action::update:
        case Action::headless: {
            QCoreApplication application(argc, argv);
            velt::HeadlessRunner runner;
            return runner.run(request);
        }
    }
    return 0;
}
