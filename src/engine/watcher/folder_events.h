// FolderEvents: inotify on the watched folder, used only to tell which entries changed since the
// last look, so that a poll tick with nothing to do lists nothing and a tick after a change looks
// at the changed names only. The poll, debounce and stability rules stay as they are; events
// never start processing by themselves.
//
// Without inotify (the watch limit reached, a file system that has no events) `isActive` is
// false and the engine lists the folder every tick. An event-queue overflow, too many names, or
// the folder itself moved or deleted count as "everything may have changed"; a watch that ended
// is set up again on the next look.
//
// Lives on the engine's queue: create, read and destroy it there only.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <memory>
#include <vector>

class QSocketNotifier;

namespace velt {

class FolderEvents {
  public:
    // Starts watching `folder`. `parent` is an object of the queue's thread. When inotify cannot
    // be used, says why in one log line and stays inactive.
    FolderEvents(const QString& folder, QObject* parent);
    ~FolderEvents();
    FolderEvents(const FolderEvents&) = delete;
    FolderEvents& operator=(const FolderEvents&) = delete;

    bool isActive() const { return fd_ >= 0; }

    struct Changes {
        bool everything = false;
        std::vector<QByteArray> names;  // raw entry names, each once
        bool any() const { return everything || !names.empty(); }
    };
    // What changed since the last call (events not yet delivered included); resets. The first
    // call after construction reports everything. Always everything while inactive.
    Changes takeChanges();

  private:
    void drain();
    void watch();

    QByteArray folder_;
    QObject* parent_;
    int fd_ = -1;
    int watch_ = -1;
    Changes changes_{true, {}};
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace velt
