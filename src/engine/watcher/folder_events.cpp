#include "engine/watcher/folder_events.h"

#include "model/native_log.h"

#include <sys/inotify.h>
#include <unistd.h>
#include <QFile>
#include <QSocketNotifier>
#include <cerrno>
#include <cstring>

namespace velt {

FolderEvents::FolderEvents(const QString& folder, QObject* parent) {
    const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    const auto unavailable = [](const char* step) {
        NativeLog::write(QStringLiteral("File events unavailable (") + QLatin1String(step) +
                         QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno)) +
                         QStringLiteral("); polling the folder every tick"));
    };
    if (fd < 0) {
        unavailable("inotify_init1");
        return;
    }
    constexpr std::uint32_t mask = IN_CREATE | IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_TO |
                                   IN_MOVED_FROM | IN_DELETE | IN_ATTRIB | IN_DELETE_SELF |
                                   IN_MOVE_SELF;
    if (::inotify_add_watch(fd, QFile::encodeName(folder).constData(), mask) < 0) {
        unavailable("inotify_add_watch");
        ::close(fd);
        return;
    }
    fd_ = fd;
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, parent, [this] { drain(); });
}

FolderEvents::~FolderEvents() {
    notifier_.reset();
    if (fd_ >= 0) ::close(fd_);
}

bool FolderEvents::takeChanged() {
    if (fd_ < 0) return true;
    drain();  // events not yet delivered to the notifier count too
    const bool changed = changed_;
    changed_ = false;
    return changed;
}

void FolderEvents::drain() {
    alignas(inotify_event) char buffer[8192];
    for (;;) {
        const ssize_t length = ::read(fd_, buffer, sizeof buffer);
        if (length <= 0) return;  // EAGAIN: nothing more for now
        // Any event, an overflow included, means the listing may differ.
        changed_ = true;
    }
}

}  // namespace velt
