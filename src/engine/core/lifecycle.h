// EngineLifecycle: the little state that stop() must reach from another thread while the
// engine's queue is busy: whether a stop was requested, whether the engine runs, and the
// external encoders now running (one per batch worker; a watching engine runs one at a time).
// Everything else of the engine belongs to its queue.
#pragma once

#include "engine/core/child_process.h"

#include <memory>
#include <mutex>
#include <vector>

namespace velt {

class EngineLifecycle {
  public:
    // Clears a previous stop request; called by start before anything is scheduled.
    void beginStart();
    void markRunning();

    // Sets the stop flag, clears `running` and terminates every registered encoder.
    void requestStop();

    bool isRunning() const;
    bool isCancellationRequested() const;

    // Throws FolderCompressorControlError::cancelled when a stop was requested.
    void checkpoint() const;

    // Registers the encoder now running so that requestStop() can end it. Returns whether a stop
    // was already requested (the caller then terminates the process itself, because the stop may
    // have happened before the registration).
    bool registerActiveProcess(std::shared_ptr<ChildProcess> process);
    // Clears the registration of `process`.
    void clearActiveProcess(const ChildProcess* process);

  private:
    mutable std::mutex lifecycleLock;
    bool cancellationRequested = false;                          // guarded by lifecycleLock
    bool running = false;                                        // guarded by lifecycleLock
    std::vector<std::shared_ptr<ChildProcess>> activeProcesses;  // guarded by lifecycleLock
};

}  // namespace velt
