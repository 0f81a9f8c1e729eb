#include "engine/watcher/folder_events.h"

#include "model/native_log.h"

#include <sys/inotify.h>
#include <unistd.h>
#include <QFile>
#include <QSocketNotifier>
#include <algorithm>
#include <cerrno>
#include <cstring>

namespace velt {
namespace {

// Past this many names in one look, listing the folder is as cheap as looking at each.
constexpr std::size_t maximumNames = 4096;

void logUnavailable(const char* step) {
    NativeLog::write(QStringLiteral("File events unavailable (") + QLatin1String(step) +
                     QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno)) +
                     QStringLiteral("); polling the folder every tick"));
}

}  // namespace

FolderEvents::FolderEvents(const QString& folder, QObject* parent)
    : folder_(QFile::encodeName(folder)), parent_(parent) {
    const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) {
        logUnavailable("inotify_init1");
        return;
    }
    fd_ = fd;
    watch();
    if (watch_ < 0) {
        logUnavailable("inotify_add_watch");
        ::close(fd_);
        fd_ = -1;
        return;
    }
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, parent_, [this] { drain(); });
}

FolderEvents::~FolderEvents() {
    notifier_.reset();
    if (fd_ >= 0) ::close(fd_);
}

void FolderEvents::watch() {
    constexpr std::uint32_t mask = IN_CREATE | IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_TO |
                                   IN_MOVED_FROM | IN_DELETE | IN_ATTRIB | IN_DELETE_SELF |
                                   IN_MOVE_SELF;
    watch_ = ::inotify_add_watch(fd_, folder_.constData(), mask);
}

FolderEvents::Changes FolderEvents::takeChanges() {
    if (fd_ < 0) return {true, {}};
    drain();  // events not yet delivered to the notifier count too
    // The folder was moved or deleted: what is at its path now is watched afresh.
    if (watch_ < 0) {
        watch();
        changes_.everything = true;
    }
    Changes taken = std::move(changes_);
    changes_ = {};
    std::ranges::sort(taken.names);
    taken.names.erase(std::unique(taken.names.begin(), taken.names.end()), taken.names.end());
    if (taken.everything) taken.names.clear();
    return taken;
}

void FolderEvents::drain() {
    alignas(inotify_event) char buffer[8192];
    for (;;) {
        const ssize_t length = ::read(fd_, buffer, sizeof buffer);
        if (length <= 0) return;  // EAGAIN: nothing more for now
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->mask & (IN_Q_OVERFLOW | IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
                changes_.everything = true;
                // A moved folder keeps its watch: drop it, the path is watched again.
                if ((event->mask & IN_MOVE_SELF) && event->wd == watch_)
                    ::inotify_rm_watch(fd_, watch_);
                if ((event->mask & (IN_MOVE_SELF | IN_IGNORED)) && event->wd == watch_) watch_ = -1;
                continue;
            }
            if (event->len == 0 || changes_.everything) continue;
            if (changes_.names.size() >= maximumNames) {
                changes_.everything = true;
                continue;
            }
            changes_.names.emplace_back(event->name);  // NUL-terminated, padded
        }
    }
}

}  // namespace velt
