#include "engine/install/scratch_folder.h"

#include "model/native_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <chrono>
#include <filesystem>

namespace velt {
namespace {

const QString ownerFileName = QStringLiteral(".owner");

// An earlier version's folder (no owner file) is only taken for abandoned after this long.
constexpr std::chrono::seconds oldFolderAge{3600};

bool isScratchName(const QString& name) {
    static const QRegularExpression shape(QStringLiteral("^velt-compressor-[A-Za-z0-9]{6}$"));
    return shape.match(name).hasMatch();
}

// Every entry is one of the encoders' hidden temporary files.
bool holdsOnlyOurTemporaries(const QString& folder) {
    const QFileInfoList entries = QDir(folder).entryInfoList(QDir::AllEntries | QDir::Hidden |
                                                             QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        const QString name = entry.fileName();
        if (entry.isSymLink() || !entry.isFile() || !name.startsWith(QLatin1Char('.')) ||
            !name.contains(QLatin1String(".velt-temp")))
            return false;
    }
    return true;
}

bool isAbandoned(const QString& folder, const struct stat& info) {
    const QByteArray owner = QFile::encodeName(folder + QLatin1Char('/') + ownerFileName);
    const FileDescriptor fd(::open(owner.constData(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (fd.get() >= 0) return ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0;  // its holder is gone
    const auto age = std::chrono::seconds(::time(nullptr) - info.st_mtime);
    return errno == ENOENT && age >= oldFolderAge && holdsOnlyOurTemporaries(folder);
}

}  // namespace

void ScratchFolder::removeAbandoned(const QString& temporaryFolder) {
    const QDir temporary(temporaryFolder);
    for (const QString& name :
         temporary.entryList(QDir::Dirs | QDir::NoSymLinks | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (!isScratchName(name)) continue;
        const QString folder = temporary.filePath(name);
        struct stat info {};
        if (::lstat(QFile::encodeName(folder).constData(), &info) != 0 || !S_ISDIR(info.st_mode) ||
            info.st_uid != ::getuid() || !isAbandoned(folder, info))
            continue;
        std::error_code error;
        std::filesystem::remove_all(std::filesystem::path(QFile::encodeName(folder).toStdString()),
                                    error);
        NativeLog::write((error ? QStringLiteral("Could not remove abandoned temporary folder ")
                                : QStringLiteral("Removed abandoned temporary folder ")) +
                         folder);
    }
}

ScratchFolder::ScratchFolder() {
    const QString temporary = QDir::tempPath();
    removeAbandoned(temporary);
    QByteArray pattern = QFile::encodeName(temporary + QStringLiteral("/velt-compressor-XXXXXX"));
    if (!::mkdtemp(pattern.data())) return;
    path_ = QFile::decodeName(pattern);
    const QByteArray owner = QFile::encodeName(path_ + QLatin1Char('/') + ownerFileName);
    FileDescriptor fd(::open(owner.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (fd.get() >= 0 && ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) owner_.emplace(fd.release());
}

ScratchFolder::~ScratchFolder() {
    if (path_.isEmpty()) return;
    std::error_code error;
    std::filesystem::remove_all(std::filesystem::path(QFile::encodeName(path_).toStdString()),
                                error);
}

}  // namespace velt
