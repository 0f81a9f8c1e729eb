// Measures what a watcher that runs for months costs when nothing happens:
// - after it has compressed N photos in watch mode (real photos, the real pipeline and encoders),
//   in both policies: the CPU time it spends per idle minute;
// - starting on a folder of M images it has already handled: the CPU time of the start (until the
//   engine is idle), how many files it hands to the pipeline (each would be decoded), and the CPU
//   time per idle minute after that.
// CPU time is this process's (the engine runs in it; the encoders it starts are not idle work).
//
// Usage: bench_long_run [N photos, 1000] [M handled images, 100000] [idle seconds, 60]
// Prints a table; writes nothing outside temporary folders.
#include "cpu_time.h"
#include "engine/pipeline/process.h"
#include "engine/watcher/folder_compressor.h"
#include "imageio/image_io.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

namespace {

using namespace std::chrono;
using namespace velt;

// A data folder of its own for each measure (settings, registry, log).
struct DataFolder {
    QTemporaryDir dir;
    DataFolder() {
        qputenv("VELT_CONFIG_DIR", dir.path().toUtf8());
        qputenv("VELT_LOG_DIR", dir.path().toUtf8());
    }
};

// A picture with some detail, so that the JPEG path has something to save.
imageio::Bitmap picture(int width, int height, int seed) {
    imageio::Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.alphaInfo = imageio::AlphaInfo::noneSkipLast;
    bitmap.rgba.resize(static_cast<std::size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = &bitmap.rgba[(static_cast<std::size_t>(y) * width + x) * 4];
            p[0] = static_cast<std::uint8_t>(128 + 100 * std::sin((x + seed) * 0.21));
            p[1] = static_cast<std::uint8_t>(128 + 90 * std::cos((y - seed) * 0.17));
            p[2] = static_cast<std::uint8_t>((x * y + seed * 7) % 251);
            p[3] = 255;
        }
    return bitmap;
}

// Writes `count` JPEGs into `folder`, each made in a staging folder and renamed in whole.
void dropPhotos(const QString& folder, int count, int side) {
    QTemporaryDir staging;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("IMG_%1.jpg").arg(i, 6, 10, QLatin1Char('0'));
        const QString staged = QDir(staging.path()).filePath(name);
        imageio::encodeImage(picture(side, side, i), ImageFormat::jpeg, 98, staged);
        QFile::rename(staged, QDir(folder).filePath(name));
    }
}

// CPU seconds spent per minute while idle for `seconds`.
double idlePerMinute(int seconds) {
    const double before = processCpuSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    return (processCpuSeconds() - before) * 60.0 / seconds;
}

// Waits until a whole second passes with less than 10 ms of CPU: the engine has settled. False
// when that has not happened within `limit`.
bool waitUntilIdle(seconds limit = 300s) {
    const auto deadline = steady_clock::now() + limit;
    double last = processCpuSeconds();
    while (steady_clock::now() < deadline) {
        std::this_thread::sleep_for(1s);
        const double now = processCpuSeconds();
        if (now - last < 0.01) return true;
        last = now;
    }
    return false;
}

void watchAfterCompressing(int photos, int idleSeconds) {
    for (const auto policy : {OriginalPolicy::keep, OriginalPolicy::replace}) {
        DataFolder data;
        QTemporaryDir folder;
        FolderCompressor engine;
        EngineTiming timing;
        timing.restAfterFile = 0ms;  // only speeds up the compressing, not measured
        engine.setTimingForTesting(timing);
        std::atomic<int> handled = 0;
        engine.setProcessorForTesting([&](EngineContext& context, const QString& file) {
            const FolderCompressionResult result = process(context, file);
            ++handled;
            return result;
        });
        AppConfig config;
        config.originalPolicy = policy;
        engine.start(config, folder.path());
        const auto begun = steady_clock::now();
        dropPhotos(folder.path(), photos, 64);
        while (handled < photos) std::this_thread::sleep_for(100ms);
        const double compressing = duration<double>(steady_clock::now() - begun).count();
        std::this_thread::sleep_for(10s);  // every own-write record runs out
        waitUntilIdle();
        std::printf(
            "| %d photos compressed while watching, %s policy (%.0f s) | idle CPU s / "
            "minute | %.3f |\n",
            photos, policy == OriginalPolicy::keep ? "keep" : "replace", compressing,
            idlePerMinute(idleSeconds));
        std::fflush(stdout);
        engine.stop();
    }
}

void startOnHandled(int images, int idleSeconds) {
    DataFolder data;
    QTemporaryDir folder;
    const QString model = QDir(folder.path()).filePath(QStringLiteral("model.jpg"));
    imageio::encodeImage(picture(16, 16, 1), ImageFormat::jpeg, 90, model);
    for (int i = 0; i < images; ++i)
        QFile::copy(model,
                    QDir(folder.path())
                        .filePath(QStringLiteral("IMG_%1.jpg").arg(i, 6, 10, QLatin1Char('0'))));
    QFile::remove(model);
    {
        // Handled as the pipeline settles an image it cannot make smaller.
        FolderCompressor engine;
        engine.setProcessorForTesting([](EngineContext& context, const QString& file) {
            context.rememberProcessed(file, ProcessedDecision::alreadyOptimal);
            return FolderCompressionResult{};
        });
        engine.runOnce(AppConfig(), folder.path(), nullptr, 2);
    }
    std::atomic<int> toPipeline = 0;
    const double before = processCpuSeconds();
    FolderCompressor engine;  // a new launch: the registry is read again
    engine.setProcessorForTesting([&](EngineContext& context, const QString& file) {
        ++toPipeline;
        return process(context, file);
    });
    engine.start(AppConfig(), folder.path());
    std::this_thread::sleep_for(3s);
    const bool settled = waitUntilIdle();
    const double start = processCpuSeconds() - before;
    std::printf("| start on %d handled images | CPU s until idle%s | %.2f |\n", images,
                settled ? "" : " (still busy after 300 s)", start);
    std::printf("| start on %d handled images | files handed to the pipeline | %d |\n", images,
                toPipeline.load());
    std::fflush(stdout);
    std::printf("| start on %d handled images | idle CPU s / minute | %.3f |\n", images,
                idlePerMinute(idleSeconds));
    engine.stop();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const int photos = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int images = argc > 2 ? std::atoi(argv[2]) : 100'000;
    const int idleSeconds = argc > 3 ? std::atoi(argv[3]) : 60;
    std::printf("| measure | quantity | result |\n|---|---|---|\n");
    if (photos > 0) watchAfterCompressing(photos, idleSeconds);
    if (images > 0) startOnHandled(images, idleSeconds);
    return 0;
}
