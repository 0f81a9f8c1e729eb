// ChildProcess: one external program started with an argument vector (never a shell), its
// standard output and error sent to /dev/null, its standard input /dev/null or a pipe that
// waitForExit() feeds. Owned through std::shared_ptr so that the engine's
// stop() can terminate it from another thread while the engine's queue waits for it.
//
// Thread-safety: terminate() and isRunning() may be called from any thread; waitForExit() only
// from the thread that spawned it. The destructor kills and reaps a child that is still running,
// so no process outlives its handle.
#pragma once

#include "engine/core/child_input.h"
#include "model/file_descriptor.h"

#include <sys/types.h>
#include <QString>
#include <QStringList>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>

namespace velt {

// What one run of a tool may use: address space (0: no limit) and wall-clock time (0: no limit).
struct ToolLimits {
    std::int64_t memoryBytes = 0;
    std::chrono::seconds time{0};
};

class ChildProcess {
  public:
    // Starts `executable` with `arguments` (argv[0] is the executable's path), inheriting the
    // environment and working directory, within `limits` (the memory limit is the child's own
    // address-space limit). The child dies with this process, even when this process is killed.
    // With `inputPipe` its standard input is a pipe that waitForExit() feeds.
    // Throws FileSystemError(launchFailed) when it cannot start.
    static std::shared_ptr<ChildProcess> spawn(const QString& executable,
                                               const QStringList& arguments,
                                               const ToolLimits& limits = {},
                                               bool inputPipe = false);

    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Blocks until the child exits; returns its exit status, or 128 + signal number when a
    // signal ended it. After terminate(), a child that ignores SIGTERM is killed after a short
    // grace period, so this always returns soon after terminate().
    // A time limit given to spawn() ends the child like terminate() once it has passed.
    // Meanwhile `input` is written into the child's input pipe as the child reads it, and the
    // pipe is closed after the last piece, when the child stops reading, or when the child is
    // being ended (so a child that never reads cannot hold this call). Without `input` the child
    // reads an empty input.
    int waitForExit(const InputChunks& input = {});

    // Whether waitForExit() ended the child because its time limit passed.
    bool timedOut() const;

    // Asks the child to end (SIGTERM now, SIGKILL if it is still there after the grace period).
    // Does nothing once the child has been reaped.
    void terminate();

    bool isRunning() const;

  private:
    ChildProcess(pid_t pid, std::chrono::seconds timeLimit, int inputPipe);

    // Reaps the child if it has exited. REQUIRES: mutex_ held.
    bool reapIfExitedLocked();

    mutable std::mutex mutex_;
    pid_t pid_;
    FileDescriptor inputPipe_;         // the write end of the child's input, -1 without one
    bool reaped_ = false;              // guarded by mutex_; the pid may be reused once true
    int exitStatus_ = 0;               // guarded by mutex_; valid once reaped_
    bool terminateRequested_ = false;  // guarded by mutex_
    std::chrono::steady_clock::time_point terminateRequestedAt_;  // guarded by mutex_
    std::chrono::steady_clock::time_point startedAt_;
    std::chrono::seconds timeLimit_;
    bool timedOut_ = false;  // guarded by mutex_
};

}  // namespace velt
