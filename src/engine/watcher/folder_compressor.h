// FolderCompressor: the engine that watches one folder and hands each new, stable image in it
// to the processing pipeline.
//
// The folder is polled (no file-system events): every polling interval a scan is requested, scan
// requests are debounced, and one scan processes the stable candidates one at a time on the
// engine's own serial queue ("com.velt.compressor.folder"). All per-file state lives on that
// queue. Callbacks are invoked on the queue; the receiver moves to its own thread.
//
// REQUIRES: a QCoreApplication exists (the queue runs a Qt event loop).
//
// Thread-safety: start, stop and isRunning may be called from any thread; stop also from the
// engine's own queue (from inside a callback). Set the callbacks before the first start.
#pragma once

#include "engine/core/engine_timing.h"
#include "engine/core/lifecycle.h"
#include "engine/install/scratch_folder.h"
#include "engine/pipeline/engine_context.h"
#include "engine/pipeline/folder_compression_result.h"
#include "engine/pipeline/restore.h"
#include "engine/watcher/folder_events.h"
#include "engine/watcher/folder_lock.h"
#include "engine/watcher/scan_planner.h"
#include "engine/watcher/serial_queue.h"

#include <QString>
#include <QTimer>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace velt {

// What a batch run did with one candidate.
struct BatchFileResult {
    // cancelled: the engine was stopped while this file was in progress.
    enum class Outcome { compressed, alreadyOptimal, failed, skipped, cancelled };
    QString file;
    Outcome outcome = Outcome::skipped;
    std::int64_t savedBytes = 0;    // for compressed files
    std::optional<Message> reason;  // for failed files, and why a file was skipped
    std::optional<QString> output;  // the file written, for compressed files
};

class FolderCompressor {
  public:
    // Processes one file; the default is the real pipeline.
    using Processor = std::function<FolderCompressionResult(EngineContext&, const QString&)>;

    // Loads the processed-file registry from the data folder (an empty one on any failure).
    FolderCompressor();
    // Stops the engine (ending a running encoder) and joins its queue.
    ~FolderCompressor();
    FolderCompressor(const FolderCompressor&) = delete;
    FolderCompressor& operator=(const FolderCompressor&) = delete;

    // Stops any previous run, then watches `watchDirectory` with a copy of `config`. Throws
    // FileSystemError(noSuchFile) when the folder is missing or not a folder, FolderBusyError when
    // another process's engine holds it; the engine then stays stopped.
    void start(const AppConfig& config, const QString& watchDirectory);

    // Requests cancellation, ends a running encoder, waits for the file in progress to return
    // (unless called on the queue itself) and forgets the per-file state. The registry and the
    // done/saved/error counters are kept.
    void stop();

    bool isRunning() const;

    // Processes the candidates now in `folder` once, with a copy of `config`,
    // without polling, without waiting for files to hold still and without the rest between
    // files; the engine's other skip rules and the registry apply as in a scan. Blocks until the
    // batch ends; stop() from another thread ends it after the file in progress. Throws
    // FileSystemError(noSuchFile) when the folder is missing, FolderBusyError when another
    // process's engine holds it. Stops a running watch first and
    // leaves the engine stopped. `onFileDone`, when given, is called on the engine's queue with
    // each result the moment it is known, with the number of results so far and the number of
    // files the batch looks at (with several jobs, from the worker that finished the file, one
    // call at a time). `jobs` workers process files at the same time, each through the same
    // pipeline and safety rules; sources sharing a base name go to one worker, one after
    // another. With more than one job the callbacks are called from the workers' threads, and a
    // file starts only when its estimated memory fits beside the files in progress (a file too
    // large for the whole budget runs alone). With `redo` the folder is compressed again (see
    // compressAgain).
    using BatchProgress = std::function<void(const BatchFileResult&, int done, int total)>;
    std::vector<BatchFileResult> runOnce(const AppConfig& config, const QString& folder,
                                         const BatchProgress& onFileDone = nullptr, int jobs = 1,
                                         bool redo = false);

    // Compresses the watched folder again, once, under the settings in force: every photo is
    // encoded afresh from its original (a kept original, or the verified backup of a replaced
    // one; an output whose original has no backup is left as it is), never from the program's
    // own output. Runs as the next scan of a running engine, or of the next start; returns at
    // once.
    void compressAgain();

    // Undoes the compression of `file` (see restoreFile) on the engine's queue, between two
    // files, whether or not the engine runs; a success is reported as a history entry. `done`
    // is called on the queue with the outcome, or with the error and no outcome.
    using RestoreDone =
        std::function<void(const std::optional<RestoreOutcome>&, std::exception_ptr)>;
    void restore(const QString& file, const std::optional<QString>& watchDirectory,
                 bool besideWhenTaken, RestoreDone done);

    // Compresses what the user dropped, now, with `config`, through the same pipeline, skip and
    // safety rules as a scan: a dropped file itself, a dropped folder by the images in it. Each
    // file's backups go to the folder it is in; a folder another engine holds is left alone (its
    // files fail with that reason). Anything that is not an image is reported once as an
    // unsupported file. Runs on the engine's queue between two files, whether or not the engine
    // watches; the results reach the history and counters as a scan's do, and `done` gets them
    // on the queue. Call it from the thread that starts and stops the engine.
    using DropDone = std::function<void(const std::vector<BatchFileResult>&)>;
    void compressDropped(const AppConfig& config, const QStringList& paths, DropDone done);

    EngineCallbacks callbacks;

    // Test seams, kept in the code on purpose: a processor standing in for the pipeline, and
    // shorter intervals. REQUIRES: called while the engine is stopped.
    void setProcessorForTesting(Processor processor) { processor_ = std::move(processor); }
    void setTimingForTesting(const EngineTiming& timing) { timing_ = timing; }
    // Without file events the engine lists the folder on every tick, as on a file system that
    // has none.
    void setFileEventsForTesting(bool enabled) { fileEventsEnabled_ = enabled; }
    // A batch's memory: its budget in bytes and each file's estimate, instead of the system's
    // available memory and estimatedEncodeBytes().
    struct BatchMemory {
        std::int64_t budget = 0;
        std::function<std::int64_t(const QString& file)> estimate;
    };
    void setBatchMemoryForTesting(BatchMemory memory) { batchMemory_ = std::move(memory); }

  private:
    void startPolling();
    // Removes backups older than the settings keep them, now and then once a day.
    void startBackupUpkeep();
    void scheduleScan();
    // Whether a poll tick needs a scan (see ScanPlanner).
    bool scanIsDue();
    // The files the scan now starting looks at: the whole listing (`listing` set) or the
    // planner's names.
    QStringList candidatesToLookAt(const QString& folder, bool& listing);
    void scan();
    // Processes one candidate as a scan does; false when the scan must end (cancellation).
    bool processCandidate(const QString& file);
    // Runs the processor on one candidate and does what every processed file needs, in a scan
    // and in a batch alike: the "Processed" line, the counters, the history entry, and for a
    // failure its report and the memory that keeps this version of the file from being tried
    // again. Never throws.
    BatchFileResult runCandidate(EngineContext& context, const QString& file);
    // Logs, counts and reports a failed file; returns what the user is told.
    Message reportFailure(EngineContext& context, const QString& file, const std::exception& error);
    // Processes `groups` on `jobs` workers, each with a context of its own and one shared
    // registry; files of one group one after another.
    void runInParallel(const std::vector<QStringList>& groups, int jobs,
                       const std::function<void(BatchFileResult)>& record);
    // A batch, or a pass asked for, takes what is there now: every file counts as holding still.
    void takeAsSettled(EngineContext& context, const QStringList& files) const;
    void reportUnsupportedIfNeeded(const QString& file);
    // An image whose name is not valid UTF-8 is reported once per version as unsupported.
    void reportUndecodableNameIfNeeded(const QString& folder, const QByteArray& rawName,
                                       const FileSignature& signature);
    void stopTimers();
    // What the user asks for (a restore, a drop) runs on the queue as soon as the file in
    // progress is done: between two files of a scan, or on its own when no scan runs.
    void postUserRequest(std::function<void()> request);
    void runUserRequests();
    // The dropped images of one folder; `watching` tells whether the engine watches.
    void compressDroppedIn(const AppConfig& config, const QString& folder, const QStringList& files,
                           bool watching, std::vector<BatchFileResult>& results);

    EngineLifecycle lifecycle_;
    SerialQueue queue_;
    EngineContext context_;  // queue-owned
    Processor processor_;
    EngineTiming timing_;
    ScratchFolder scratch_;       // intermediates and encoder candidates; removed with the engine
    QTimer* timer_ = nullptr;     // the poll timer; lives on the queue
    QTimer* workItem_ = nullptr;  // the debounced scan; lives on the queue
    QTimer* upkeepTimer_ = nullptr;         // the daily removal of old backups; lives on the queue
    std::unique_ptr<FolderEvents> events_;  // queue-owned
    std::unique_ptr<FolderLock> lock_;      // held while running or in a batch
    ScanPlanner planner_;                   // queue-owned
    bool redoRequested_ = false;            // queue-owned; until a pass of compressAgain has ended
    bool fileEventsEnabled_ = true;
    std::optional<BatchMemory> batchMemory_;
    std::mutex userRequestsMutex_;
    std::vector<std::function<void()>> userRequests_;  // guarded by userRequestsMutex_
};

}  // namespace velt
