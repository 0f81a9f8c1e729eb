// EngineLifecycle: the little state that stop() must reach from another thread while the
// engine's queue is busy: whether a stop was requested, whether the engine runs, and the
// external encoder now running. Everything else of the engine belongs to its queue.
#pragma once

#include "engine/encoders/child_process.h"

#include <memory>
#include <mutex>

namespace velt {

class EngineLifecycle {
  public:
    // Clears a previous stop request; called by start before anything is scheduled.
    void beginStart();
    void markRunning();

    // Sets the stop flag, clears `running` and terminates the registered encoder, if any.
    void requestStop();

    bool isRunning() const;
    bool isCancellationRequested() const;

    // Throws FolderCompressorControlError::cancelled when a stop was requested.
    void checkpoint() const;

    // Registers the encoder now running so that requestStop() can end it. Returns whether a stop
    // was already requested (the caller then terminates the process itself, because the stop may
    // have happened before the registration).
    bool registerActiveProcess(std::shared_ptr<ChildProcess> process);
    // Clears the registration if it is still `process` (a newer one is left alone).
    void clearActiveProcess(const ChildProcess* process);

  private:
    mutable std::mutex lifecycleLock;
    bool cancellationRequested = false;           // guarded by lifecycleLock
    bool running = false;                         // guarded by lifecycleLock
    std::shared_ptr<ChildProcess> activeProcess;  // guarded by lifecycleLock
};

}  // namespace velt
