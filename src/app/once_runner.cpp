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

QString batchLine(const BatchFileResult& result) {
    const QString name = QFileInfo(result.file).fileName();
    switch (result.outcome) {
        case BatchFileResult::Outcome::compressed:
            return QStringLiteral("compressed       ") + name + QStringLiteral("  saved ") +
                   formatBytes(std::max<std::int64_t>(result.savedBytes, 0));
        case BatchFileResult::Outcome::alreadyOptimal:
            return QStringLiteral("already optimal  ") + name;
        case BatchFileResult::Outcome::failed:
            return QStringLiteral("failed           ") + name + QStringLiteral(": ") +
                   result.message;
        case BatchFileResult::Outcome::cancelled:
            return QStringLiteral("stopped          ") + name;
        case BatchFileResult::Outcome::skipped:
            break;
    }
    return QStringLiteral("skipped          ") + name +
           (result.message.isEmpty() ? QStringLiteral(" (already processed)")
                                     : QStringLiteral(": ") + result.message);
}

QString batchSummary(const std::vector<BatchFileResult>& results) {
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
    return QStringLiteral("compressed %1, already optimal %2, failed %3, saved %4")
        .arg(compressed)
        .arg(optimal)
        .arg(failed)
        .arg(formatBytes(saved));
}

int runOnceCommand(const CommandLineRequest& request) {
    NativeLog::write(QStringLiteral("App launched"));
    if (qEnvironmentVariable("VELT_LAUNCH_SMOKE") == QLatin1String("1")) {
        NativeLog::write(QStringLiteral("Launch smoke complete"));
        return 0;
    }
    const AppConfig config = request.overrides.appliedTo(loadAppConfig());
    NativeLog::write(QStringLiteral("Once run ") + request.onceDirectory);
    FolderCompressor engine;
    std::vector<BatchFileResult> results;
    std::optional<QString> failure;
    bool folderBusy = false;
    std::atomic<bool> interrupted = false;

    // Each file's line appears the moment it is done; on a terminal a progress line follows it.
    const bool terminal = ::isatty(STDOUT_FILENO) == 1;
    std::int64_t savedSoFar = 0;
    // Called by one worker at a time.
    const auto onFileDone = [&](const BatchFileResult& result, int done, int total) {
        if (result.outcome == BatchFileResult::Outcome::compressed)
            savedSoFar += std::max<std::int64_t>(result.savedBytes, 0);
        QByteArray text = (batchLine(result) + QLatin1Char('\n')).toUtf8();
        if (terminal)
            text = "\r\x1b[K" + text +
                   QStringLiteral("%1/%2, %3 saved")
                       .arg(done)
                       .arg(total)
                       .arg(formatBytes(savedSoFar))
                       .toUtf8();
        std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stdout);
        std::fflush(stdout);
    };

    // The batch runs off the main thread so that a signal can stop the engine meanwhile.
    std::thread worker([&] {
        try {
            results =
                engine.runOnce(config, request.onceDirectory, onFileDone,
                               request.jobs.value_or(QThread::idealThreadCount()), request.redo);
        } catch (const std::exception& error) {
            failure = errorDescription(error);
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
        QTextStream(stderr) << "velt-compressor: " << *failure << Qt::endl;
        return folderBusy ? 2 : 1;
    }
    if (terminal) out << "\r\x1b[K";
    bool anyFailed = false;
    for (const BatchFileResult& result : results)
        anyFailed = anyFailed || result.outcome == BatchFileResult::Outcome::failed;
    out << batchSummary(results) << Qt::endl;
    if (interrupted) QTextStream(stderr) << "velt-compressor: interrupted" << Qt::endl;
    return anyFailed || interrupted ? 1 : 0;
}

}  // namespace velt
