// backup: a verified copy of the original in the dated backup folder inside the watched folder.
#include "engine/errors.h"
#include "engine/install/backup_name.h"
#include "engine/install/safe_install.h"
#include "engine/watcher/file_signature.h"
#include "install_support.h"
#include "model/format.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QDateTime>
#include <QDir>
#include <QFile>

namespace velt {
namespace {

using testing::Fault;
using testing::FaultInjector;
using testing::Folder;
using testing::FolderState;
using testing::Operation;

const QString backups = QStringLiteral(".velt-compressor-backups/");

// The backup folder entries (folders included) for a copy at `relative` inside today's folder.
FolderState backupEntries(const QString& day, const QString& relative, const QByteArray& bytes) {
    FolderState entries{{backups, ""}};
    QString folder = backups + day + QLatin1Char('/');
    entries[folder] = "";
    const QStringList parts = relative.split(QLatin1Char('/'));
    for (qsizetype i = 0; i + 1 < parts.size(); ++i) {
        folder += parts[i] + QLatin1Char('/');
        entries[folder] = "";
    }
    entries[folder + parts.last()] = bytes;
    return entries;
}

void setModifiedAndMode(const QString& path, const QDateTime& modified, mode_t mode) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(modified, QFileDevice::FileModificationTime));
    ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
}

mode_t permissions(const QString& path) {
    struct stat info {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
    return info.st_mode & 07777;
}

struct PlacementCase {
    const char* source;  // relative to the watched folder
    const char* copy;    // relative to today's backup folder
};

TEST(BackupTest, FaithfulCopyUnderTheDayAndTheRelativePath) {
    const PlacementCase cases[] = {
        {"b.jpg", "b.original.jpg"},
        {"sub/deeper/c d.png", "sub/deeper/c d.original.png"},
        {"README", "README.original"},
        {"фото 🎉.final.JPG", "фото 🎉.final.original.JPG"},
    };
    const QDateTime past(QDate(2020, 1, 2), QTime(3, 4, 5), Qt::UTC);
    for (const PlacementCase& c : cases) {
        SCOPED_TRACE(c.source);
        Folder watched;
        const QString source = QString::fromUtf8(c.source);
        watched.write(source, "original bytes");
        setModifiedAndMode(watched.file(source), past, 0604);
        const SourceVersion version = sourceVersion(watched.file(source));
        const QString day = isoDay();

        const QString copy = backup(watched.file(source), version, watched.path());
        const QString relativeCopy = QString::fromUtf8(c.copy);
        EXPECT_EQ(copy, watched.file(backups + day + QLatin1Char('/') + relativeCopy));
        FolderState expected = backupEntries(day, relativeCopy, "original bytes");
        expected[source] = "original bytes";
        if (source.contains(QLatin1Char('/'))) {
            expected[QStringLiteral("sub/")] = "";
            expected[QStringLiteral("sub/deeper/")] = "";
        }
        EXPECT_EQ(watched.state(), expected);
        EXPECT_EQ(modificationTime(copy), modificationTime(watched.file(source)));
        EXPECT_EQ(permissions(copy), 0604u);
    }
}

// Returns S from "<prefix>S<suffix>", or -1.
qint64 stampIn(const QString& name, const QString& prefix, const QString& suffix) {
    if (!name.startsWith(prefix) || !name.endsWith(suffix)) return -1;
    bool ok = false;
    const qint64 stamp =
        name.mid(prefix.size(), name.size() - prefix.size() - suffix.size()).toLongLong(&ok);
    return ok ? stamp : -1;
}

TEST(BackupTest, ATakenNameGetsTheTimeStampInMilliseconds) {
    const std::pair<const char*, const char*> names[] = {{"b", ".jpg"}, {"README", ""}};
    for (const auto& [base, extension] : names) {
        const QString name = QString::fromUtf8(base) + QString::fromUtf8(extension);
        SCOPED_TRACE(name.toStdString());
        Folder watched;
        watched.write(name, "first");
        const QString day = isoDay();
        backup(watched.file(name), sourceVersion(watched.file(name)), watched.path());
        watched.write(name, "second");
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        const QString copy =
            backup(watched.file(name), sourceVersion(watched.file(name)), watched.path());
        const qint64 after = QDateTime::currentMSecsSinceEpoch();

        const QString prefix = QString::fromUtf8(base) + QStringLiteral(".original-");
        const qint64 stamp =
            stampIn(QFileInfo(copy).fileName(), prefix, QString::fromUtf8(extension));
        EXPECT_GE(stamp, before);
        EXPECT_LE(stamp, after);
        FolderState expected = backupEntries(
            day,
            QString::fromUtf8(base) + QStringLiteral(".original") + QString::fromUtf8(extension),
            "first");
        expected[backups + day + QLatin1Char('/') + QFileInfo(copy).fileName()] = "second";
        expected[name] = "second";
        EXPECT_EQ(watched.state(), expected);
    }
}

struct RetryCase {
    const char* name;
    std::vector<const char*> taken;
    const char* expected;
    int clockReads;
};

TEST(BackupNameTest, RetriesUseOneTimeStampAndCountUpBehindIt) {
    const RetryCase cases[] = {
        {"b.jpg", {}, "b.original.jpg", 0},
        {"b.jpg", {"b.original.jpg"}, "b.original-1234.jpg", 1},
        {"b.jpg",
         {"b.original.jpg", "b.original-1234.jpg", "b.original-1234-1.jpg"},
         "b.original-1234-2.jpg",
         1},
        {"README", {"README.original", "README.original-1234"}, "README.original-1234-1", 1},
        {"my photo.final.JPG",
         {"my photo.final.original.JPG"},
         "my photo.final.original-1234.JPG",
         1},
    };
    for (const RetryCase& c : cases) {
        SCOPED_TRACE(c.name);
        Folder folder;
        for (const char* name : c.taken) folder.write(QString::fromUtf8(name), "taken");
        const FolderState before = folder.state();
        int reads = 0;
        const QString path = freeBackupPath(folder.path(), QString::fromUtf8(c.name), [&] {
            ++reads;
            return qint64(1234);
        });
        EXPECT_EQ(path, folder.file(QString::fromUtf8(c.expected)));
        EXPECT_EQ(reads, c.clockReads);
        EXPECT_EQ(folder.state(), before);
    }
}

// Every occurrence of the watched folder's path is removed from the source's path, not only the
// leading one, so a folder path repeated inside the tree is dropped as well.
TEST(BackupTest, EveryOccurrenceOfTheWatchedPathIsRemoved) {
    Folder watched;
    const QString repeated = watched.path().mid(1) + QStringLiteral("/a.jpg");
    watched.write(repeated, "photo");
    const QString copy =
        backup(watched.file(repeated), sourceVersion(watched.file(repeated)), watched.path());
    EXPECT_EQ(copy, watched.file(backups + isoDay() + QStringLiteral("/a.original.jpg")));
    EXPECT_EQ(testing::readFile(copy), "photo");
}

struct FailureCase {
    const char* label;
    std::function<void(const Folder&, const QString& day)> prepare;  // after the version
    std::vector<Fault> faults;
    std::function<void(SourceVersion&)> spoil;  // makes the expected version wrong
    const char* error;
    bool copyStays = false;  // only when removing a bad copy fails
};

// On any failure no backup copy is left behind and the source is untouched.
TEST(BackupTest, AFailedBackupLeavesNoCopy) {
    const QString source = QStringLiteral("sub/b.jpg");
    const auto wrongDigest = [](SourceVersion& v) {
        v.digest[0] = static_cast<char>(v.digest[0] ^ 1);
    };
    const auto wrongSize = [](SourceVersion& v) { v.signature.size += 1; };
    const FailureCase cases[] = {
        {"file where the backup folder goes",
         [](const Folder& f, const QString&) {
             f.write(QStringLiteral(".velt-compressor-backups"), "x");
         },
         {},
         {},
         "Cannot create the folder DIR/.velt-compressor-backups: Not a directory"},
        {"file where the day folder goes",
         [](const Folder& f, const QString& day) { f.write(backups + day, "x"); },
         {},
         {},
         "Cannot create the folder DIR/.velt-compressor-backups/DAY: Not a directory"},
        {"file where the sub-folder goes",
         [](const Folder& f, const QString& day) {
             f.write(backups + day + QStringLiteral("/sub"), "x");
         },
         {},
         {},
         "Cannot create the folder DIR/.velt-compressor-backups/DAY/sub: Not a directory"},
        {"copy does not match the version", {}, {}, wrongDigest, "sourceChanged"},
        {"copy size does not match the version", {}, {}, wrongSize, "sourceChanged"},
        {"source rewritten since its version",
         [&](const Folder& f, const QString&) { f.write(source, "PHOTO"); },
         {},
         {},
         "sourceChanged"},
        {"copy fails", {}, {{Operation::copy, 1}}, {}, "Injected failure of copy 1"},
        {"copy does not match and cannot be removed",
         {},
         {{Operation::remove, 1}},
         wrongDigest,
         "sourceChanged",
         true},
    };
    for (const FailureCase& c : cases) {
        SCOPED_TRACE(c.label);
        Folder watched;
        watched.write(source, "photo");
        SourceVersion version = sourceVersion(watched.file(source));
        if (c.spoil) c.spoil(version);
        const QString day = isoDay();
        if (c.prepare) c.prepare(watched, day);
        const FolderState before = watched.state();
        const FaultInjector faults(c.faults);
        const QString error = testing::thrownError(
            [&] { backup(watched.file(source), version, watched.path()); }, watched.path());
        EXPECT_EQ(QString(error).replace(day, QStringLiteral("DAY")), QString::fromUtf8(c.error));
        FolderState after = watched.state();
        // Folders made before the failure may stay; a copy never does, unless its removal failed.
        std::erase_if(after, [&](const auto& entry) {
            return entry.first.endsWith(QLatin1Char('/')) && !before.count(entry.first);
        });
        if (c.copyStays) {
            EXPECT_EQ(after.erase(backups + day + QStringLiteral("/sub/b.original.jpg")), 1u);
        }
        EXPECT_EQ(after, before);
    }
}

TEST(BackupTest, WithoutAWatchedFolderNothingIsCopied) {
    Folder folder;
    folder.write(QStringLiteral("b.jpg"), "photo");
    const SourceVersion version = sourceVersion(folder.file(QStringLiteral("b.jpg")));
    try {
        backup(folder.file(QStringLiteral("b.jpg")), version, std::nullopt);
        ADD_FAILURE() << "no error";
    } catch (const FileSystemError& error) {
        EXPECT_EQ(error.code(), FileSystemError::noSuchFile);
    }
    EXPECT_EQ(folder.state(), (FolderState{{QStringLiteral("b.jpg"), "photo"}}));
}

TEST(BackupTest, AReadOnlyWatchedFolderFailsWithoutPermission) {
    if (testing::runningAsRoot()) GTEST_SKIP() << "root writes into read-only folders";
    Folder watched;
    watched.write(QStringLiteral("b.jpg"), "photo");
    const SourceVersion version = sourceVersion(watched.file(QStringLiteral("b.jpg")));
    const QByteArray path = QFile::encodeName(watched.path());
    ASSERT_EQ(::chmod(path.constData(), 0555), 0);
    try {
        backup(watched.file(QStringLiteral("b.jpg")), version, watched.path());
        ADD_FAILURE() << "no error";
    } catch (const FileSystemError& error) {
        EXPECT_EQ(error.code(), FileSystemError::writeNoPermission);
    }
    ::chmod(path.constData(), 0755);
    EXPECT_EQ(watched.state(), (FolderState{{QStringLiteral("b.jpg"), "photo"}}));
}

}  // namespace
}  // namespace velt
