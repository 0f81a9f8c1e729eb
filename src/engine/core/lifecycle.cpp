#include "engine/core/lifecycle.h"

#include "engine/core/errors.h"

namespace velt {

void EngineLifecycle::beginStart() {
    const std::lock_guard lock(lifecycleLock);
    cancellationRequested = false;
}

void EngineLifecycle::markRunning() {
    const std::lock_guard lock(lifecycleLock);
    running = true;
}

void EngineLifecycle::requestStop() {
    std::vector<std::shared_ptr<ChildProcess>> processes;
    {
        const std::lock_guard lock(lifecycleLock);
        cancellationRequested = true;
        running = false;
        processes = activeProcesses;
    }
    // Never terminate under the lock: the encoder's waiter takes it when the process ends.
    for (const auto& process : processes) {
        if (process->isRunning()) process->terminate();
    }
}

bool EngineLifecycle::isRunning() const {
    const std::lock_guard lock(lifecycleLock);
    return running;
}

bool EngineLifecycle::isCancellationRequested() const {
    const std::lock_guard lock(lifecycleLock);
    return cancellationRequested;
}

void EngineLifecycle::checkpoint() const {
    if (isCancellationRequested())
        throw FolderCompressorControlError(FolderCompressorControlError::cancelled);
}

bool EngineLifecycle::registerActiveProcess(std::shared_ptr<ChildProcess> process) {
    const std::lock_guard lock(lifecycleLock);
    activeProcesses.push_back(std::move(process));
    return cancellationRequested;
}

void EngineLifecycle::clearActiveProcess(const ChildProcess* process) {
    const std::lock_guard lock(lifecycleLock);
    std::erase_if(activeProcesses, [process](const auto& p) { return p.get() == process; });
}

}  // namespace velt
