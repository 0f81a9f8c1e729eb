#include "engine/install/file_operations.h"

#include "engine/core/errors.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QFile>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace velt {
namespace {

constexpr std::size_t copyChunkBytes = 1'048'576;

// Owns one open file descriptor.
class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    // Closes now and reports whether close succeeded (a late write error can surface here).
    bool close() {
        const int fd = fd_;
        fd_ = -1;
        return fd < 0 || ::close(fd) == 0;
    }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

  private:
    int fd_;
};

FileOperations& activeOperations() {
    static FileOperations operations = realFileOperations();
    return operations;
}

QString moveOperation(const QString& from) {
    return QStringLiteral("Cannot move %1 to").arg(from);
}

// Writes all of `data`, continuing after short writes and interruptions.
void writeFully(int fd, const char* data, std::size_t length, const QString& path) {
    while (length > 0) {
        const ssize_t written = ::write(fd, data, length);
        if (written < 0) {
            if (errno == EINTR) continue;
            throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot write"), path);
        }
        data += written;
        length -= static_cast<std::size_t>(written);
    }
}

// In the kernel, without passing the bytes through this process (and as a reflink, free of space
// and time, where the file system can share extents). False when the kernel or the file systems
// cannot: nothing was copied and the caller copies by hand.
bool copyInKernel(int input, int output, const QString& from, const QString& to) {
    bool first = true;
    for (;;) {
        const ssize_t copied = ::copy_file_range(input, nullptr, output, nullptr, 1 << 30, 0);
        if (copied == 0) return true;
        if (copied > 0) {
            first = false;
            continue;
        }
        if (errno == EINTR) continue;
        const bool unsupported = errno == ENOSYS || errno == EXDEV || errno == EINVAL ||
                                 errno == EOPNOTSUPP || errno == EBADF;
        if (first && unsupported) return false;
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot copy to"),
                                         to + QStringLiteral(" from ") + from);
    }
}

void copyBytes(int input, int output, const QString& from, const QString& to) {
    if (copyInKernel(input, output, from, to)) return;
    QByteArray buffer(static_cast<qsizetype>(copyChunkBytes), Qt::Uninitialized);
    for (;;) {
        const ssize_t count = ::read(input, buffer.data(), copyChunkBytes);
        if (count < 0) {
            if (errno == EINTR) continue;
            throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot read"), from);
        }
        if (count == 0) return;
        writeFully(output, buffer.constData(), static_cast<std::size_t>(count), to);
    }
}

// Everything after the exclusive create: content, permission bits, times, flush, close.
void fillNewFile(int input, const struct stat& info, Descriptor& output, const QString& from,
                 const QString& to) {
    copyBytes(input, output.get(), from, to);
    if (::fchmod(output.get(), info.st_mode & 0777) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot set the permissions of"),
                                         to);
    const struct timespec times[2] = {info.st_atim, info.st_mtim};
    if (::futimens(output.get(), times) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot set the dates of"), to);
    if (::fsync(output.get()) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot flush"), to);
    if (!output.close())
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot close"), to);
}

}  // namespace

FileOperations realFileOperations() {
    return FileOperations{moveWithoutReplacing, copyToNewFile, removeFile};
}

const FileOperations& currentFileOperations() {
    return activeOperations();
}

ScopedFileOperations::ScopedFileOperations(FileOperations replacement)
    : previous_(std::exchange(activeOperations(), std::move(replacement))) {}

ScopedFileOperations::~ScopedFileOperations() {
    activeOperations() = std::move(previous_);
}

void moveWithoutReplacing(const QString& from, const QString& to) {
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    const int result =
        ::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE);
    if (result == 0) return;
    const int error = errno;
    // EINVAL: the file system has no no-replace rename; ENOSYS: the kernel has none at all.
    if (error == EINVAL || error == ENOSYS) return moveByLink(from, to);
    throw FileSystemError::fromErrno(error, moveOperation(from), to);
}

void moveByLink(const QString& from, const QString& to) {
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::link(source.constData(), target.constData()) != 0)
        throw FileSystemError::fromErrno(errno, moveOperation(from), to);
    if (::unlink(source.constData()) != 0) {
        const int error = errno;
        ::unlink(target.constData());
        throw FileSystemError::fromErrno(error, QStringLiteral("Cannot remove"), from);
    }
}

void copyToNewFile(const QString& from, const QString& to) {
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    Descriptor input(::open(source.constData(), O_RDONLY | O_CLOEXEC));
    if (!input.valid())
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot open"), from);
    struct stat info {};
    if (::fstat(input.get(), &info) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot read the attributes of"),
                                         from);
    if (!S_ISREG(info.st_mode))
        throw FileSystemError(FileSystemError::readUnknown,
                              QStringLiteral("Cannot copy %1: not a regular file").arg(from));
    Descriptor output(
        ::open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!output.valid())
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot create"), to);
    try {
        fillNewFile(input.get(), info, output, from, to);
    } catch (...) {
        output.reset();
        ::unlink(target.constData());
        throw;
    }
    syncFolder(parentFolder(to));
}

void takeOverAccess(const QString& from, const QString& to) {
    struct stat source {};
    if (::stat(QFile::encodeName(from).constData(), &source) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot read the attributes of"),
                                         from);
    const QByteArray target = QFile::encodeName(to);
    // Owner first: changing it may clear set-id bits, which the chmod below then settles.
    if (::lchown(target.constData(), source.st_uid, source.st_gid) != 0)
        ::lchown(target.constData(), static_cast<uid_t>(-1), source.st_gid);
    if (::chmod(target.constData(), source.st_mode & 07777) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot set the permissions of"),
                                         to);
}

void takeOverDates(const QString& from, const QString& to) {
    struct stat source {};
    if (::stat(QFile::encodeName(from).constData(), &source) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot read the attributes of"),
                                         from);
    const struct timespec times[2] = {source.st_atim, source.st_mtim};
    if (::utimensat(AT_FDCWD, QFile::encodeName(to).constData(), times, AT_SYMLINK_NOFOLLOW) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot set the dates of"), to);
}

void removeFile(const QString& path) {
    if (::unlink(QFile::encodeName(path).constData()) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot remove"), path);
}

void removeQuietly(const QString& path) noexcept {
    try {
        currentFileOperations().remove(path);
    } catch (...) {
    }
}

QString parentFolder(const QString& path) {
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    if (slash < 0) return QStringLiteral(".");
    if (slash == 0) return QStringLiteral("/");
    return path.left(slash);
}

bool pathExists(const QString& path) {
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

bool isDirectory(const QString& path) {
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isRegularFile(const QString& path) {
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISREG(info.st_mode);
}

bool isSymbolicLink(const QString& path) {
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISLNK(info.st_mode);
}

void syncFile(const QString& path) {
    Descriptor file(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    if (!file.valid()) throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot open"), path);
    if (::fsync(file.get()) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot flush"), path);
}

void syncFolder(const QString& path) {
    Descriptor folder(
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.valid()) ::fsync(folder.get());
}

}  // namespace velt
