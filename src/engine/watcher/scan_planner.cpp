#include "engine/watcher/scan_planner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <QFile>

namespace velt {

void ScanPlanner::reset() {
    *this = ScanPlanner();
}

bool ScanPlanner::tick(FolderEvents* events, bool filesWaiting, EngineClock::time_point now,
                       std::chrono::milliseconds fullScanInterval) {
    if (!events || !events->isActive()) {
        listingNeeded_ = true;
    } else {
        FolderEvents::Changes changes = events->takeChanges();
        if (changes.everything) listingNeeded_ = true;
        for (QByteArray& name : changes.names) names_.push_back(std::move(name));
    }
    if (now - lastCheck_ >= fullScanInterval) {
        lastCheck_ = now;
        checkDue_ = true;
    }
    return listingNeeded_ || checkDue_ || !names_.empty() || filesWaiting;
}

ScanPlanner::Plan ScanPlanner::takePlan(const QString& folder) {
    Plan plan;
    if (checkDue_) {
        checkDue_ = false;
        if (folder != folder_ || stampOf(folder) != listedStamp_) {
            listingNeeded_ = true;
        } else if (!listedFiles_.isEmpty()) {
            for (int i = 0; i < sweepSlice && i < listedFiles_.size(); ++i) {
                if (sweepCursor_ >= listedFiles_.size()) sweepCursor_ = 0;
                plan.again << listedFiles_.at(sweepCursor_++);
            }
        }
    }
    if (listingNeeded_) {
        listingNeeded_ = false;
        names_.clear();
        plan.listing = true;
        plan.again.clear();
        // Taken before the listing: a change during it shows at the next check.
        listedStamp_ = stampOf(folder);
        folder_ = folder;
        return plan;
    }
    plan.names = std::move(names_);
    names_.clear();
    return plan;
}

void ScanPlanner::listed(const QStringList& candidates) {
    listedFiles_ = candidates;
    sweepCursor_ = 0;
}

void ScanPlanner::lookAgain(const QString& file) {
    names_.push_back(QFile::encodeName(file.mid(file.lastIndexOf(QLatin1Char('/')) + 1)));
}

std::optional<ScanPlanner::FolderStamp> ScanPlanner::stampOf(const QString& folder) {
    struct statx info {};
    if (::statx(AT_FDCWD, QFile::encodeName(folder).constData(), 0, STATX_MTIME | STATX_INO,
                &info) != 0)
        return std::nullopt;
    return FolderStamp{
        static_cast<std::int64_t>(info.stx_mtime.tv_sec) * 1'000'000'000 + info.stx_mtime.tv_nsec,
        info.stx_ino, (std::uint64_t{info.stx_dev_major} << 32) | info.stx_dev_minor};
}

}  // namespace velt
