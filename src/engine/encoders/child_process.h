// ChildProcess: one external program started with an argument vector (never a shell), its
// standard output and error sent to /dev/null. Owned through std::shared_ptr so that the engine's
// stop() can terminate it from another thread while the engine's queue waits for it.
//
// Thread-safety: terminate() and isRunning() may be called from any thread; waitForExit() only
// from the thread that spawned it. The destructor kills and reaps a child that is still running,
// so no process outlives its handle.
#pragma once

#include <sys/types.h>
#include <QString>
#include <QStringList>
#include <chrono>
#include <memory>
#include <mutex>

namespace velt {

class ChildProcess {
  public:
    // Starts `executable` with `arguments` (argv[0] is the executable's path), inheriting the
    // environment and working directory. Throws FileSystemError(launchFailed) when it cannot start.
    static std::shared_ptr<ChildProcess> spawn(const QString& executable,
                                               const QStringList& arguments);

    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Blocks until the child exits; returns its exit status, or 128 + signal number when a
    // signal ended it. After terminate(), a child that ignores SIGTERM is killed after a short
    // grace period, so this always returns soon after terminate().
    int waitForExit();

    // Asks the child to end (SIGTERM now, SIGKILL if it is still there after the grace period).
    // Does nothing once the child has been reaped.
    void terminate();

    bool isRunning() const;

  private:
    explicit ChildProcess(pid_t pid);

    // Reaps the child if it has exited. REQUIRES: mutex_ held.
    bool reapIfExitedLocked();

    mutable std::mutex mutex_;
    pid_t pid_;
    bool reaped_ = false;              // guarded by mutex_; the pid may be reused once true
    int exitStatus_ = 0;               // guarded by mutex_; valid once reaped_
    bool terminateRequested_ = false;  // guarded by mutex_
    std::chrono::steady_clock::time_point terminateRequestedAt_;  // guarded by mutex_
};

}  // namespace velt
