// FolderLock: one engine per watched folder. Two engines on one folder (a second launch, or a
// launch beside the headless service) would compress the same file twice. The lock is an flock
// on a small file in the user's runtime folder named after the watched folder's device and inode
// (whatever path reaches it), so the kernel releases it when its holder dies, however it dies,
// and nothing is written into the watched folder. The file holds the holder's process id, so the
// second engine can say who has it.
//
// Owned by the engine; not thread-safe (the engine takes and releases it on its own queue).
#pragma once

#include "model/reported_error.h"

#include <sys/types.h>
#include <QString>
#include <stdexcept>

namespace velt {

// Another process holds the folder.
class FolderBusyError : public std::runtime_error, public ReportedError {
  public:
    FolderBusyError(const QString& folder, pid_t holder);
    pid_t holder() const { return holder_; }
    // "The folder “…” is already being compressed by process N."
    QString description() const;
    Message reason() const override;

  private:
    QString folder_;
    pid_t holder_;
};

class FolderLock {
  public:
    // Takes the lock for `folder` (standardised path). Throws FolderBusyError when another process
    // holds it. When no lock file can be made at all (no writable runtime folder) the lock is
    // empty: the engine works without it, and says so in one log line.
    explicit FolderLock(const QString& folder);
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    bool isHeld() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

}  // namespace velt
