// A running engine on a real temporary folder with short intervals, a processor supplied by the
// test, and everything the engine reports recorded for assertions.
#pragma once

#include "engine/watcher/folder_compressor.h"
#include "model/file_url.h"
#include "support/test_environment.h"

#include <QDir>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace velt::testing {

using namespace std::chrono_literals;

inline EngineTiming fastTiming() {
    EngineTiming timing;
    timing.polling = 50ms;
    timing.scanDebounce = 10ms;
    timing.writeStability = 150ms;
    timing.recentWriteCooldown = 300ms;
    timing.ownWriteSettling = 500ms;
    timing.restAfterFile = 0ms;
    return timing;
}

// Polls `condition` until it holds or `timeout` passes; returns its last value.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds timeout = 5000ms) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (condition()) return true;
        std::this_thread::sleep_for(10ms);
    }
    return condition();
}

// An engine context over a fresh data folder and a temporary watched folder, for tests that drive
// the processing steps directly without a running engine.
struct ContextRig {
    ContextRig() { context.watchDirectory = folder.path(); }
    QString file(const QString& name) const { return QDir(folder.path()).filePath(name); }
    // Records `output`, as it is now, as the engine's output of `source`.
    void recordOutput(const QString& source, const QString& output) {
        auto record =
            context.recordOf(source, ProcessedDecision::compressed).value_or(ProcessedFileRecord{});
        record.output = standardizedPath(output);
        record.outputFingerprint = contentFingerprint(output);
        context.remember(source, record);
    }

    IsolatedDataFolder data;
    QTemporaryDir folder;
    EngineLifecycle lifecycle;
    EngineCallbacks callbacks;
    EngineContext context{lifecycle, callbacks};
};

struct Call {
    QString file;
    std::int64_t sizeSeen;
};

class EngineRig {
  public:
    explicit EngineRig(FolderCompressor::Processor behaviour = nullptr) { relaunch(behaviour); }

    // The engine reports while it stops: it must go before the records it reports into.
    ~EngineRig() { engine.reset(); }

    // Recreates the engine as a new launch would (the registry is read again).
    void relaunch(FolderCompressor::Processor behaviour = nullptr) {
        engine.reset();
        engine = std::make_unique<FolderCompressor>();
        attach(behaviour);
    }

    void start(const AppConfig& config = AppConfig()) { engine->start(config, folder.path()); }

    QString file(const QString& name) const { return QDir(folder.path()).filePath(name); }

    std::vector<Call> calls() const { return locked(calls_); }
    std::vector<CompressionStats> stats() const { return locked(stats_); }
    std::vector<CompressionNotificationEvent> events() const { return locked(events_); }
    std::vector<CompressionHistoryEntry> history() const { return locked(history_); }
    std::size_t callCount() const { return calls().size(); }
    std::size_t callsEndingWith(const QString& name) const {
        return std::ranges::count_if(calls(), [&](const Call& c) { return c.file.endsWith(name); });
    }
    QByteArray log() const { return readFile(data.file(QStringLiteral("native.log"))); }

    IsolatedDataFolder data;
    QTemporaryDir folder;
    std::unique_ptr<FolderCompressor> engine;

  private:
    template <typename T>
    T locked(const T& value) const {
        const std::lock_guard lock(mutex_);
        return value;
    }

    template <typename T>
    std::function<void(const T&)> recordInto(std::vector<T>& records) {
        return [this, &records](const T& record) {
            const std::lock_guard lock(mutex_);
            records.push_back(record);
        };
    }

    void attach(FolderCompressor::Processor behaviour) {
        engine->setTimingForTesting(fastTiming());
        engine->callbacks.onStats = recordInto(stats_);
        engine->callbacks.onEvent = recordInto(events_);
        engine->callbacks.onHistory = recordInto(history_);
        engine->setProcessorForTesting([this, behaviour](EngineContext& context, const QString& f) {
            recordInto(calls_)({f, QFileInfo(f).size()});
            if (behaviour) return behaviour(context, f);
            return settle(context, f);
        });
    }

  public:
    // What the pipeline does for a file it leaves as it is: remember its signature.
    static FolderCompressionResult settle(EngineContext& context, const QString& file) {
        if (const auto signature = fileSignature(file))
            context.files.markHandled(standardizedPath(file), *signature);
        return {};
    }

  private:
    mutable std::mutex mutex_;
    std::vector<Call> calls_;
    std::vector<CompressionStats> stats_;
    std::vector<CompressionNotificationEvent> events_;
    std::vector<CompressionHistoryEntry> history_;
};

}  // namespace velt::testing
