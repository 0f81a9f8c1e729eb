#include "engine/watcher/candidates.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

TEST(IgnoreRules, Table) {
    const QString folder = QStringLiteral("/home/u/Drop");
    const std::pair<const char*, bool> cases[] = {
        {"/home/u/Drop/photo.jpg", false},
        {"/home/u/Drop/IMG 1.final.JPG", false},
        {"/home/u/Drop/Фото 📷.heic", false},
        {"/home/u/Drop/noextension", false},
        {"/home/u/Drop/photo.jpg.download", true},
        {"/home/u/Drop/x.crdownload", true},
        {"/home/u/Drop/x.PART", true},
        {"/home/u/Drop/.DS_Store", true},
        {"/home/u/Drop/~$report.jpg", true},
        {"/home/u/Drop/a.velt-temp.jpg", true},
        {"/home/u/Drop/a.velt-temp-1234.jpg", true},
        {"/home/u/Drop/x.velt-replace-ABC.png", true},
        {"/home/u/Drop/b_veltcompressed.webp", true},
        {"/home/u/Drop/b_veltcompressed", true},
        {"/home/u/Drop/b_veltcompressed.old.webp", false},  // the suffix must end the base name
        {"/home/u/Drop/.velt-compressor-backups/2026-01-01/a.original.jpg", true},
        {"/home/u/Drop/sub/.velt-compressor-backups/a.jpg", true},
        {"/home/u/Other/a.jpg", true},  // outside the folder
        {"/home/u/Drop2/a.jpg", true},  // a prefix of the name is not inside
        {"/home/u/Drop/./sub/../a.jpg", false},
    };
    for (const auto& [path, ignored] : cases)
        EXPECT_EQ(shouldIgnore(QString::fromUtf8(path), folder), ignored) << path;
}

TEST(IsDescendant, StandardisedPaths) {
    EXPECT_TRUE(isDescendant(QStringLiteral("/a/b"), QStringLiteral("/a/b/")));
    EXPECT_TRUE(isDescendant(QStringLiteral("/a/b/c"), QStringLiteral("/a/b")));
    EXPECT_FALSE(isDescendant(QStringLiteral("/a/bc"), QStringLiteral("/a/b")));
    EXPECT_TRUE(isDescendant(QStringLiteral("/x"), QStringLiteral("/")));
}

// A real folder: only regular, visible, supported files at the top level are candidates.
TEST(SupportedFiles, RealFolder) {
    QTemporaryDir dir;
    const QDir folder(dir.path());
    const QStringList images = {QStringLiteral("a.jpg"), QStringLiteral("Фото 📷 1.PNG"),
                                QStringLiteral("many.dots.in.name.webp")};
    for (const QString& name : images) testing::writeFile(folder.filePath(name), "x");
    for (const char* name : {"clip.MOV", "notes.txt", "noext", ".hidden.jpg",
                             "a_veltcompressed.jpg", "photo.jpg.download"})
        testing::writeFile(folder.filePath(QString::fromUtf8(name)), "x");
    ASSERT_TRUE(folder.mkpath(QStringLiteral("sub")));
    testing::writeFile(folder.filePath(QStringLiteral("sub/inner.jpg")), "x");
    ASSERT_TRUE(folder.mkpath(QStringLiteral("dir.jpg")));
    ASSERT_TRUE(QFile::link(folder.filePath(QStringLiteral("a.jpg")),
                            folder.filePath(QStringLiteral("link.jpg"))));
    ASSERT_TRUE(QFile::link(folder.filePath(QStringLiteral("sub")),
                            folder.filePath(QStringLiteral("linkdir.jpg"))));

    QStringList unsupported;
    QStringList found = supportedFiles(
        dir.path(), [&](const QString& file) { unsupported << QFileInfo(file).fileName(); });
    for (QString& file : found) {
        EXPECT_TRUE(file.startsWith(dir.path() + QLatin1Char('/')));
        file = QFileInfo(file).fileName();
    }
    found.sort();
    QStringList expected = images;
    expected.sort();
    EXPECT_EQ(found, expected);
    unsupported.sort();
    EXPECT_EQ(unsupported, QStringList{QStringLiteral("clip.MOV")});
}

TEST(SupportedFiles, MissingFolderHasNoCandidates) {
    EXPECT_TRUE(supportedFiles(QStringLiteral("/nonexistent/velt"), nullptr).isEmpty());
}

}  // namespace
}  // namespace velt
