#include "app/restore_command.h"

#include "engine/core/errors.h"
#include "engine/pipeline/restore.h"
#include "model/config_file.h"
#include "model/native_log.h"

#include <QFileInfo>
#include <QTextStream>

namespace velt {

int runRestoreCommand(const CommandLineRequest& request) {
    const AppConfig config = loadAppConfig();
    QTextStream out(stdout);
    QTextStream err(stderr);
    NativeLog::write(QStringLiteral("Restore requested ") + request.restoreFile);
    try {
        ProcessedFileRegistry registry;
        const RestoreOutcome outcome =
            restoreFile(registry, request.restoreFile, config.watchDirectory, false);
        CompressionHistory history = loadHistory();
        insertNewest(history, restoredHistoryEntry(outcome));
        saveHistory(history);
        out << text(config.language, Text::historyStatusRestored) << ": " << outcome.original
            << '\n';
        return 0;
    } catch (const RestoreError& error) {
        NativeLog::write(QStringLiteral("Restore refused: ") +
                         QString::fromStdString(error.what()));
        err << "velt-compressor: " << error.reason().inLanguage(config.language) << '\n';
    } catch (const std::exception& error) {
        NativeLog::write(QStringLiteral("Restore failed: ") + errorDescription(error));
        err << "velt-compressor: " << reasonOf(error).inLanguage(config.language) << '\n';
    }
    return 1;
}

}  // namespace velt
