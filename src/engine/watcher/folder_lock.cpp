#include "engine/watcher/folder_lock.h"

#include "model/native_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QCryptographicHash>
#include <QFile>
#include <cerrno>
#include <cstring>

namespace velt {
namespace {

// $XDG_RUNTIME_DIR/velt-compressor, else a private folder of this user under /tmp.
QString lockFolder() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString base = runtime.isEmpty()
                             ? QStringLiteral("/tmp/velt-compressor-%1").arg(::getuid())
                             : runtime + QStringLiteral("/velt-compressor");
    ::mkdir(QFile::encodeName(base).constData(), 0700);
    return base;
}

// Named after the folder itself, its device and inode, so that every spelling of its path (a
// symbolic link, a bind mount, "/./") finds the same lock; after the path when it cannot be read.
QString lockPath(const QString& folder) {
    struct stat info {};
    const QByteArray identity = ::stat(QFile::encodeName(folder).constData(), &info) == 0
                                    ? QByteArrayLiteral("dev:") +
                                          QByteArray::number(quint64(info.st_dev)) +
                                          ":ino:" + QByteArray::number(quint64(info.st_ino))
                                    : folder.toUtf8();
    const QByteArray digest =
        QCryptographicHash::hash(identity, QCryptographicHash::Sha256).toHex().left(32);
    return lockFolder() + QStringLiteral("/folder-") + QString::fromLatin1(digest) +
           QStringLiteral(".lock");
}

pid_t holderOf(int fd) {
    char buffer[32] = {};
    const ssize_t length = ::pread(fd, buffer, sizeof buffer - 1, 0);
    return length > 0 ? static_cast<pid_t>(std::atol(buffer)) : 0;
}

}  // namespace

FolderBusyError::FolderBusyError(const QString& folder, pid_t holder)
    : std::runtime_error(
          QStringLiteral("The folder “%1” is already being compressed by process %2.")
              .arg(folder)
              .arg(holder)
              .toStdString()),
      folder_(folder),
      holder_(holder) {}

QString FolderBusyError::description() const {
    return QString::fromUtf8(what());
}

Message FolderBusyError::reason() const {
    return {Text::folderBusy, {folder_, QString::number(holder_)}};
}

FolderLock::FolderLock(const QString& folder) {
    const QString path = lockPath(folder);
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        NativeLog::write(QStringLiteral("Folder lock unavailable (") + path + QStringLiteral(": ") +
                         QString::fromLocal8Bit(std::strerror(errno)) +
                         QStringLiteral("); a second engine on this folder would not be noticed"));
        return;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const pid_t holder = holderOf(fd);
        ::close(fd);
        throw FolderBusyError(folder, holder);
    }
    const QByteArray pid = QByteArray::number(::getpid()) + '\n';
    if (::ftruncate(fd, 0) == 0) {
        [[maybe_unused]] const ssize_t written = ::pwrite(fd, pid.constData(), pid.size(), 0);
    }
    fd_ = fd;
}

FolderLock::~FolderLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the flock
}

}  // namespace velt
