#include "engine/watcher/candidates.h"

#include "model/constants.h"
#include "model/file_url.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <QFile>
#include <cctype>
#include <cstring>
#include <memory>

namespace velt {

const QSet<QString> temporaryExtensions = {QStringLiteral("tmp"),      QStringLiteral("temp"),
                                           QStringLiteral("download"), QStringLiteral("crdownload"),
                                           QStringLiteral("part"),     QStringLiteral("filepart")};

const QSet<QString> supportedExtensions = {
    QStringLiteral("jpg"),  QStringLiteral("jpeg"), QStringLiteral("png"), QStringLiteral("webp"),
    QStringLiteral("avif"), QStringLiteral("heic"), QStringLiteral("heif")};

const QSet<QString> unsupportedDropExtensions = {
    QStringLiteral("3gp"),  QStringLiteral("avi"),  QStringLiteral("bmp"), QStringLiteral("dng"),
    QStringLiteral("gif"),  QStringLiteral("hevc"), QStringLiteral("ico"), QStringLiteral("m4v"),
    QStringLiteral("mkv"),  QStringLiteral("mov"),  QStringLiteral("mp4"), QStringLiteral("pdf"),
    QStringLiteral("psd"),  QStringLiteral("raw"),  QStringLiteral("svg"), QStringLiteral("tif"),
    QStringLiteral("tiff"), QStringLiteral("webm")};

namespace {

QString lastComponent(const QString& path) {
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

// Regular file, decided without following a symbolic link; the directory entry usually says.
bool isRegularFile(DIR* dir, const dirent* entry) {
    if (entry->d_type == DT_REG) return true;
    if (entry->d_type != DT_UNKNOWN) return false;
    struct stat info {};
    return ::fstatat(::dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(info.st_mode);
}

}  // namespace

QString lowerExtension(const QString& path) {
    return splitFileName(lastComponent(path)).extension.toLower();
}

bool isDescendant(const QString& child, const QString& folder) {
    const QString childPath = standardizedPath(child);
    const QString folderPath = standardizedPath(folder);
    if (childPath == folderPath) return true;
    if (folderPath == QLatin1String("/")) return childPath.startsWith(folderPath);
    return childPath.startsWith(folderPath + QLatin1Char('/'));
}

namespace {

bool isCompressedOutputName(const QString& name) {
    return splitFileName(name).base.endsWith(compressedFileSuffix);
}

// The rules that the name alone decides.
bool ignoredByName(const QString& name) {
    if (name.isEmpty() || name.startsWith(QLatin1Char('.')) || name.startsWith(QLatin1String("~$")))
        return true;
    if (name.contains(tempFileMarker) || name.contains(replaceFileMarker)) return true;
    if (temporaryExtensions.contains(splitFileName(name).extension.toLower())) return true;
    return isCompressedOutputName(name);
}

bool insideBackupFolder(const QString& path) {
    return standardizedPath(path).split(QLatin1Char('/')).contains(backupDirName);
}

}  // namespace

bool shouldIgnore(const QString& file, const QString& folder) {
    if (ignoredByName(lastComponent(file)) || insideBackupFolder(file)) return true;
    if (standardizedPath(file) == standardizedPath(folder)) return false;
    return !isDescendant(file, folder);
}

namespace {

// Whether the raw name's extension, compared in ASCII lower case, is one the engine acts on
// (processed, or worth an unsupported-file notice). Every other entry is dropped without
// building a single string: most of a large folder's files end here on every scan.
bool hasInterestingExtension(const char* name) {
    const char* dot = std::strrchr(name, '.');
    if (!dot || dot == name) return false;
    char lower[8];
    std::size_t length = 0;
    for (const char* c = dot + 1; *c; ++c) {
        if (length + 1 >= sizeof lower) return false;
        lower[length++] = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
    }
    lower[length] = '\0';
    const QString extension = QString::fromLatin1(lower, static_cast<qsizetype>(length));
    return supportedExtensions.contains(extension) || unsupportedDropExtensions.contains(extension);
}

}  // namespace

namespace {

// Sorts one entry of the open folder: a candidate goes to `candidates`, an unsupported drop is
// reported, everything else is passed over. `isRegular` decides, without following a link,
// whether the entry is a regular file.
void classifyEntry(int folderFd, const char* rawName, const QString& prefix,
                   const std::function<bool()>& isRegular, QStringList& candidates,
                   const std::function<void(const QString&)>& reportUnsupported,
                   const UndecodableNameReport& reportUndecodableName) {
    // Hidden entries (and "." and "..") go before anything else.
    if (rawName[0] == '.' || !hasInterestingExtension(rawName) || !isRegular()) return;
    // A direct child is inside the folder by construction: only its name can exclude it.
    const QString name = QFile::decodeName(rawName);
    if (QFile::encodeName(name) != rawName) {
        if (reportUndecodableName) {
            if (const auto signature = fileSignatureAt(folderFd, rawName))
                reportUndecodableName(QByteArray(rawName), *signature);
        }
        return;
    }
    if (ignoredByName(name)) return;
    if (supportedExtensions.contains(splitFileName(name).extension.toLower()))
        candidates << prefix + name;
    else if (reportUnsupported)
        reportUnsupported(prefix + name);
}

QString folderPrefix(const QString& folder) {
    QString prefix = standardizedPath(folder);
    if (!prefix.endsWith(QLatin1Char('/'))) prefix += QLatin1Char('/');
    return prefix;
}

}  // namespace

QStringList supportedFiles(const QString& folder,
                           const std::function<void(const QString&)>& reportUnsupported,
                           const UndecodableNameReport& reportUndecodableName) {
    QStringList candidates;
    // Every child of a folder inside a backup folder is inside it too.
    if (insideBackupFolder(folder)) return candidates;
    const std::unique_ptr<DIR, DirCloser> dir(::opendir(QFile::encodeName(folder).constData()));
    if (!dir) return candidates;
    const QString prefix = folderPrefix(folder);
    while (const dirent* entry = ::readdir(dir.get()))
        classifyEntry(
            ::dirfd(dir.get()), entry->d_name, prefix,
            [&] { return isRegularFile(dir.get(), entry); }, candidates, reportUnsupported,
            reportUndecodableName);
    return candidates;
}

QStringList candidatesAmong(const QString& folder, const std::vector<QByteArray>& rawNames,
                            const std::function<void(const QString&)>& reportUnsupported,
                            const UndecodableNameReport& reportUndecodableName) {
    QStringList candidates;
    if (rawNames.empty() || insideBackupFolder(folder)) return candidates;
    const std::unique_ptr<DIR, DirCloser> dir(::opendir(QFile::encodeName(folder).constData()));
    if (!dir) return candidates;
    const QString prefix = folderPrefix(folder);
    const int fd = ::dirfd(dir.get());
    for (const QByteArray& rawName : rawNames)
        classifyEntry(
            fd, rawName.constData(), prefix,
            [&] {
                struct stat info {};
                return ::fstatat(fd, rawName.constData(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                       S_ISREG(info.st_mode);
            },
            candidates, reportUnsupported, reportUndecodableName);
    return candidates;
}

}  // namespace velt
