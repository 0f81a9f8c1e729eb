// Old backups go by day folder, and only what the engine recorded writing there, as it wrote it.
#include "engine/pipeline/backup_retention.h"
#include "model/constants.h"
#include "model/file_url.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

using testing::writeFile;

TEST(BackupRetention, RemovesOnlyRecordedFilesOfDaysPastTheLimit) {
    QTemporaryDir folder, elsewhere;
    const QDir backups(QDir(folder.path()).filePath(backupDirName));
    ProcessedFileRegistry registry(QStringLiteral(":memory:"));
    const struct {
        const char* path;  // in the backup folder
        bool recorded;
        bool changedSince;
        bool stays;
    } files[] = {
        {"2026-01-01/a.original.jpg", true, false, false},
        {"2026-01-01/trip/b.original.png", true, false, false},
        {"2026-01-01/notes.txt", false, false, true},       // the user's own
        {"2026-01-02/c.original.jpg", true, true, true},    // not what was written
        {"2026-01-30/d.original.jpg", true, false, false},  // 31 days before
        {"2026-01-31/e.original.jpg", true, false, true},   // 30 days: kept
        {"2026-02-20/f.original.jpg", true, false, true},
        {"not-a-day/g.original.jpg", true, false, true},
    };
    for (const auto& file : files) {
        const QString path = backups.filePath(QString::fromUtf8(file.path));
        QDir().mkpath(QFileInfo(path).path());
        writeFile(path, "backup bytes");
        if (file.recorded) registry.rememberBackup(standardizedPath(path), 12);
        if (file.changedSince) writeFile(path, "changed by someone else");
    }
    // A day folder that is a link leads outside: nothing is followed there.
    writeFile(QDir(elsewhere.path()).filePath(QStringLiteral("h.original.jpg")), "backup bytes");
    registry.rememberBackup(
        standardizedPath(backups.filePath(QStringLiteral("2026-01-03/h.original.jpg"))), 12);
    QFile::link(elsewhere.path(), backups.filePath(QStringLiteral("2026-01-03")));

    const QDate today(2026, 3, 2);
    EXPECT_EQ(removeOldBackups(registry, folder.path(), 0, today).files, 0) << "forever";
    EXPECT_EQ(backupUsage(folder.path()).files, 8);
    const BackupUsage removed = removeOldBackups(registry, folder.path(), 30, today);
    EXPECT_EQ(removed.files, 3);
    EXPECT_EQ(removed.bytes, 36);
    for (const auto& file : files)
        EXPECT_EQ(QFileInfo::exists(backups.filePath(QString::fromUtf8(file.path))), file.stays)
            << file.path;
    EXPECT_FALSE(backups.exists(QStringLiteral("2026-01-01/trip"))) << "emptied folder left";
    EXPECT_FALSE(backups.exists(QStringLiteral("2026-01-30")));
    EXPECT_TRUE(
        QFileInfo::exists(QDir(elsewhere.path()).filePath(QStringLiteral("h.original.jpg"))));
    EXPECT_EQ(backupUsage(folder.path()).files, 5);
}

}  // namespace
}  // namespace velt
