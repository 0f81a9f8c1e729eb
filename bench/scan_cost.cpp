// Measures what watching costs: one scan of a folder of 10,000 files, per scan and per file, and
// the CPU time an idle engine spends per minute on that folder.
//
// Usage: bench_scan_cost [file count] [idle seconds]
// Prints a table; writes nothing outside a temporary folder.
#include "cpu_time.h"
#include "engine/watcher/candidates.h"
#include "engine/watcher/folder_compressor.h"
#include "engine/watcher/skip_rules.h"
#include "model/file_url.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

namespace {

using namespace std::chrono;
using namespace velt;

void fill(const QString& folder, int count, const char* extension) {
    for (int i = 0; i < count; ++i) {
        QFile file(QDir(folder).filePath(
            QStringLiteral("file %1.%2").arg(i).arg(QLatin1String(extension))));
        if (!file.open(QIODevice::WriteOnly)) std::abort();
        file.write("plain");
    }
}

// One scan as the engine runs it when nothing is new: list, then every skip test.
void scanOnce(EngineContext& context, const EngineTiming& timing, const QString& folder) {
    const QStringList candidates = supportedFiles(folder, nullptr);
    for (const QString& file : candidates) shouldSkip(context, timing, file);
}

struct Row {
    const char* name;
    double wallMsPerScan;
    double cpuMsPerScan;
    double cpuSecondsPerIdleMinute;
};

Row measure(const char* name, const char* extension, int count, int idleSeconds) {
    QTemporaryDir data;
    qputenv("VELT_CONFIG_DIR", data.path().toUtf8());
    qputenv("VELT_LOG_DIR", data.path().toUtf8());
    QTemporaryDir folder;
    fill(folder.path(), count, extension);

    // Direct scans with every candidate already handled.
    EngineLifecycle lifecycle;
    EngineCallbacks callbacks;
    EngineContext context(lifecycle, callbacks);
    const EngineTiming timing;
    for (const QString& file : supportedFiles(folder.path(), nullptr))
        context.files.markHandled(standardizedPath(file), *fileSignature(file));
    const int scans = 30;
    const double cpuBefore = processCpuSeconds();
    const auto wallBefore = steady_clock::now();
    for (int i = 0; i < scans; ++i) scanOnce(context, timing, folder.path());
    const double wallMs = duration<double, std::milli>(steady_clock::now() - wallBefore).count();
    const double cpuMs = (processCpuSeconds() - cpuBefore) * 1000;

    // The real engine, polling once a second, after it has settled every file.
    FolderCompressor engine;
    // The production intervals, without the rest after each processed file (it only slows the
    // settling of the 10,000 files before the measurement, not the idle scans measured).
    EngineTiming idleTiming;
    idleTiming.restAfterFile = 0ms;
    engine.setTimingForTesting(idleTiming);
    std::atomic<int> processed = 0;
    engine.setProcessorForTesting([&](EngineContext& c, const QString& file) {
        if (const auto signature = fileSignature(file))
            c.files.markHandled(standardizedPath(file), *signature);
        ++processed;
        return FolderCompressionResult{};
    });
    engine.start(AppConfig(), folder.path());
    const int candidates = static_cast<int>(supportedFiles(folder.path(), nullptr).size());
    while (processed < candidates) std::this_thread::sleep_for(100ms);
    std::this_thread::sleep_for(1500ms);
    const double idleBefore = processCpuSeconds();
    std::this_thread::sleep_for(seconds(idleSeconds));
    const double idleCpu = processCpuSeconds() - idleBefore;
    engine.stop();
    return {name, wallMs / scans, cpuMs / scans, idleCpu * 60.0 / idleSeconds};
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const int count = argc > 1 ? std::atoi(argv[1]) : 10'000;
    const int idleSeconds = argc > 2 ? std::atoi(argv[2]) : 20;
    std::printf("Scan cost, %d files, idle engine measured for %d s\n\n", count, idleSeconds);
    std::printf(
        "| folder | wall ms / scan | CPU ms / scan | CPU µs / file | idle CPU s / minute |\n");
    std::printf("|---|---|---|---|---|\n");
    for (const Row& row : {measure("plain .txt files (not images)", "txt", count, idleSeconds),
                           measure(".jpg files, all already handled", "jpg", count, idleSeconds)}) {
        std::printf("| %s | %.2f | %.2f | %.2f | %.3f |\n", row.name, row.wallMsPerScan,
                    row.cpuMsPerScan, row.cpuMsPerScan * 1000 / count, row.cpuSecondsPerIdleMinute);
    }
    return 0;
}
