// ScanPlanner: decides, tick by tick, whether the watched folder needs a look and what the look
// covers, so that an idle folder costs next to nothing however many files it holds.
// - Without file events every tick lists the whole folder.
// - With them, a tick looks only at the names the events reported and at the files still
//   waiting to hold still; an overflow (or a watch that ended) lists the whole folder.
// - Every full-scan interval the folder itself is checked: when its entries changed since the
//   last listing (its modification time, or another folder at its path) it is listed in full;
//   otherwise the next slice of the files listed last is looked at again, so that a change no
//   event reported (a network file system) is still seen, every file within a few intervals,
//   at a cost that does not grow with the folder.
//
// Lives on the engine's queue.
#pragma once

#include "engine/core/file_states.h"
#include "engine/watcher/folder_events.h"

#include <QString>
#include <QStringList>
#include <chrono>
#include <optional>
#include <vector>

namespace velt {

class ScanPlanner {
  public:
    // How many listed files one periodic check looks at again when the folder did not change.
    static constexpr int sweepSlice = 5000;

    // Forgets everything: the next look lists the whole folder.
    void reset();

    // Called on every poll tick with the engine's file events (null when there are none).
    // Returns whether a scan is needed; what it covers is taken with takePlan().
    bool tick(FolderEvents* events, bool filesWaiting, EngineClock::time_point now,
              std::chrono::milliseconds fullScanInterval);

    struct Plan {
        bool listing = false;           // list the whole folder
        std::vector<QByteArray> names;  // else: these entries
        QStringList again;              // and these files, listed before
    };
    // What the scan now starting covers. `folder` is checked when the periodic check is due.
    Plan takePlan(const QString& folder);

    // The candidates a full listing found, remembered for the periodic checks.
    void listed(const QStringList& candidates);
    // The next tick looks at `file` again (what its processing decided, or deferred, is
    // confirmed by a look).
    void lookAgain(const QString& file);

  private:
    struct FolderStamp {
        std::int64_t modifiedNs = 0;
        std::uint64_t inode = 0;
        std::uint64_t device = 0;
        bool operator==(const FolderStamp&) const = default;
    };
    static std::optional<FolderStamp> stampOf(const QString& folder);

    bool listingNeeded_ = true;
    bool checkDue_ = false;
    std::vector<QByteArray> names_;
    EngineClock::time_point lastCheck_;
    std::optional<FolderStamp> listedStamp_;
    QStringList listedFiles_;
    qsizetype sweepCursor_ = 0;
    QString folder_;
};

}  // namespace velt
