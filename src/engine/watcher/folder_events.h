// FolderEvents: inotify on the watched folder, used only to tell whether anything changed since
// the last scan, so that a poll tick with nothing to do lists nothing. The poll, debounce and
// stability rules stay as they are; events never start processing by themselves.
//
// Without inotify (the watch limit reached, a file system that has no events) `isActive` is
// false and the engine polls every tick as before. An event-queue overflow counts as a change.
//
// Lives on the engine's queue: create, read and destroy it there only.
#pragma once

#include <QObject>
#include <QString>
#include <memory>

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
    // Whether an event (or an overflow) arrived since the last takeChanged(); resets the flag.
    // Always true while inactive.
    bool takeChanged();

  private:
    void drain();

    int fd_ = -1;
    bool changed_ = true;  // the first tick after a start always scans
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace velt
