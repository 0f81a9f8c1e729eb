#include "app/once_runner.h"

#include "app/termination_signals.h"
#include "engine/core/errors.h"
#include "model/config_file.h"
#include "model/format.h"
#include "model/native_log.h"

#include <unistd.h>
#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <cstdio>
#include <thread>

namespace velt {

namespace {

Text outcomeLabel(BatchFileResult::Outcome outcome) {
    switch (outcome) {
        case BatchFileResult::Outcome::compressed:
            return Text::onceCompressed;
        case BatchFileResult::Outcome::alreadyOptimal:
            return Text::onceAlreadyOptimal;
        case BatchFileResult::Outcome::failed:
            return Text::onceFailed;
        case BatchFileResult::Outcome::cancelled:
            return Text::onceStopped;
        case BatchFileResult::Outcome::skipped:
            break;
    }
    return Text::onceSkipped;
}

// The labels stand in one column, as wide as the language's longest and two blanks more.
qsizetype labelWidth(AppLanguage language) {
    qsizetype width = 0;
    for (const auto outcome :
         {BatchFileResult::Outcome::compressed, BatchFileResult::Outcome::alreadyOptimal,
          BatchFileResult::Outcome::failed, BatchFileResult::Outcome::cancelled,
          BatchFileResult::Outcome::skipped})
        width = std::max(width, text(language, outcomeLabel(outcome)).size());
    return width + 2;
}

}  // namespace

QString batchLine(const BatchFileResult& result, AppLanguage language) {
    QString line =
        text(language, outcomeLabel(result.outcome)).leftJustified(labelWidth(language)) +
        QFileInfo(result.file).fileName();
    if (result.outcome == BatchFileResult::Outcome::compressed) {
        const QString output = result.output ? QFileInfo(*result.output).fileName() : QString();
        if (output == QFileInfo(result.file).fileName())
            line += QLatin1Char(' ') + text(language, Text::onceReplaced);
        else if (!output.isEmpty())
            line += QStringLiteral(" → ") + output;
        line += QStringLiteral("  ") +
                text(language, Text::onceSaved,
                     {formatBytes(std::max<std::int64_t>(result.savedBytes, 0), language)});
    } else if (result.reason && result.outcome != BatchFileResult::Outcome::cancelled) {
        line += QStringLiteral(": ") + result.reason->inLanguage(language);
    }
    return line;
}

QString batchSummary(const std::vector<BatchFileResult>& results, AppLanguage language) {
    int compressed = 0;
    int optimal = 0;
    int failed = 0;
    std::int64_t saved = 0;
    for (const BatchFileResult& result : results) {
        switch (result.outcome) {
            case BatchFileResult::Outcome::compressed:
                ++compressed;
                saved += std::max<std::int64_t>(result.savedBytes, 0);
                break;
            case BatchFileResult::Outcome::alreadyOptimal:
                ++optimal;
                break;
            case BatchFileResult::Outcome::failed:
                ++failed;
                break;
            case BatchFileResult::Outcome::skipped:
            case BatchFileResult::Outcome::cancelled:
                break;
        }
    }
    return text(language, Text::onceSummary,
                {QString::number(compressed), QString::number(optimal), QString::number(failed),
                 formatBytes(saved, language)});
}

int runOnceCommand(const CommandLineRequest& request) {
    NativeLog::write(QStringLiteral("App launched"));
    if (qEnvironmentVariable("VELT_LAUNCH_SMOKE") == QLatin1String("1")) {
        NativeLog::write(QStringLiteral("Launch smoke complete"));
        return 0;
    }
    const AppConfig config = request.overrides.appliedTo(loadAppConfig());
    const AppLanguage language = config.language;
    NativeLog::write(QStringLiteral("Once run ") + request.onceDirectory);
    FolderCompressor engine;
    std::vector<BatchFileResult> results;
    std::optional<Message> failure;
    bool folderBusy = false;
    std::atomic<bool> interrupted = false;

    // Each file's line appears the moment it is done; on a terminal a progress line follows it.
    const bool terminal = ::isatty(STDOUT_FILENO) == 1;
    std::int64_t savedSoFar = 0;
    // Called by one worker at a time.
    const auto onFileDone = [&](const BatchFileResult& result, int done, int total) {
        if (result.outcome == BatchFileResult::Outcome::compressed)
            savedSoFar += std::max<std::int64_t>(result.savedBytes, 0);
        QByteArray line = (batchLine(result, language) + QLatin1Char('\n')).toUtf8();
        if (terminal)
            line = "\r\x1b[K" + line +
                   text(language, Text::onceProgress,
                        {QString::number(done), QString::number(total),
                         formatBytes(savedSoFar, language)})
                       .toUtf8();
        std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
        std::fflush(stdout);
    };

    // The batch runs off the main thread so that a signal can stop the engine meanwhile.
    std::thread worker([&] {
        try {
            results =
                engine.runOnce(config, request.onceDirectory, onFileDone,
                               request.jobs.value_or(QThread::idealThreadCount()), request.redo);
        } catch (const std::exception& error) {
            NativeLog::write(QStringLiteral("Once run failed: ") + errorDescription(error));
            failure = reasonOf(error);
            folderBusy = dynamic_cast<const FolderBusyError*>(&error) != nullptr;
        }
        QMetaObject::invokeMethod(
            qApp, [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);
    });
    {
        TerminationSignals termination([&](int) {
            interrupted = true;
            engine.stop();
        });
        QCoreApplication::exec();
    }
    worker.join();

    QTextStream out(stdout);
    if (failure) {
        QTextStream(stderr) << "velt-compressor: " << failure->inLanguage(language) << Qt::endl;
        return folderBusy ? 2 : 1;
    }
    if (terminal) out << "\r\x1b[K";
    bool anyFailed = false;
    for (const BatchFileResult& result : results)
        anyFailed = anyFailed || result.outcome == BatchFileResult::Outcome::failed;
    out << batchSummary(results, language) << Qt::endl;
    if (interrupted)
        QTextStream(stderr) << "velt-compressor: " << text(language, Text::onceInterrupted)
                            << Qt::endl;
    return anyFailed || interrupted ? 1 : 0;
}

}  // namespace velt
