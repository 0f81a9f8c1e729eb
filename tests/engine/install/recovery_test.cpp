// Recovery at start, as a table: what a killed run left in the folder → what the next start does.
#include "engine/install/recovery.h"
#include "engine/install/output_marker.h"
#include "engine/install/safe_install.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QTemporaryDir>

namespace velt {
namespace {

using testing::readFile;
using testing::writeFile;

const QString uuid = QStringLiteral("0F8FAD5B-D9CB-469F-A165-70867728950E");

QStringList everything(const QString& folder) {
    QStringList names;
    QDir dir(folder);
    for (const QString& name : dir.entryList(QDir::Files | QDir::Hidden)) names << name;
    const QDir day(dir.filePath(QStringLiteral(".velt-compressor-backups/2026-01-02")));
    for (const QString& name : day.entryList(QDir::Files | QDir::Hidden))
        names << QStringLiteral("backups/") + name;
    names.sort();
    return names;
}

// Marks `installed` as an output made from a source with `sourceBytes`.
void markInstalled(const QString& installed, const QByteArray& sourceBytes, const QString& source) {
    QTemporaryDir scratch;
    const QString copy = scratch.filePath(QStringLiteral("source"));
    writeFile(copy, sourceBytes);
    ASSERT_TRUE(writeOutputMarker(installed, {QStringLiteral("key"), source, sha256Digest(copy),
                                              *contentFingerprint(installed)}));
}

TEST(Recovery, WhatAKilledRunLeftIsPutBackOrRemoved) {
    struct Row {
        const char* what;
        std::function<void(const QDir&)> left;  // the folder as the killed run left it
        QStringList after;                      // every file after the next start
    };
    const QString aside = QStringLiteral(".photo.velt-replace-") + uuid + QStringLiteral(".jpg");
    const Row rows[] = {
        {"an original moved aside, its name free: it comes back",
         [&](const QDir& d) { writeFile(d.filePath(aside), "original"); },
         {QStringLiteral("photo.jpg")}},
        {"moved aside, the finished install made from it in place: the aside goes",
         [&](const QDir& d) {
             writeFile(d.filePath(aside), "original");
             writeFile(d.filePath(QStringLiteral("photo.jpg")), "compressed");
             markInstalled(d.filePath(QStringLiteral("photo.jpg")), "original",
                           d.filePath(QStringLiteral("photo.jpg")));
         },
         {QStringLiteral("photo.jpg")}},
        {"moved aside, a file of someone else's under its name: both stay",
         [&](const QDir& d) {
             writeFile(d.filePath(aside), "original");
             writeFile(d.filePath(QStringLiteral("photo.jpg")), "the user's new photo");
         },
         {aside, QStringLiteral("photo.jpg")}},
        {"moved aside, an install of ours from different content under its name: both stay",
         [&](const QDir& d) {
             writeFile(d.filePath(aside), "original");
             writeFile(d.filePath(QStringLiteral("photo.jpg")), "compressed");
             markInstalled(d.filePath(QStringLiteral("photo.jpg")), "another original",
                           d.filePath(QStringLiteral("photo.jpg")));
         },
         {aside, QStringLiteral("photo.jpg")}},
        {"a file without an extension comes back without one",
         [&](const QDir& d) {
             writeFile(d.filePath(QStringLiteral(".README.velt-replace-") + uuid +
                                  QStringLiteral(".tmp")),
                       "text");
         },
         {QStringLiteral("README")}},
        {"temporary outputs, intermediates and backup copies of ours go",
         [&](const QDir& d) {
             writeFile(
                 d.filePath(QStringLiteral(".photo.velt-temp-") + uuid + QStringLiteral(".jpg")),
                 "half");
             writeFile(d.filePath(QStringLiteral(".photo.velt-temp-jpeg-source-") + uuid +
                                  QStringLiteral(".ppm")),
                       "P6");
             d.mkpath(QStringLiteral(".velt-compressor-backups/2026-01-02"));
             writeFile(d.filePath(QStringLiteral(".velt-compressor-backups/2026-01-02/"
                                                 ".photo.original.velt-temp-") +
                                  uuid + QStringLiteral(".jpg")),
                       "truncat");
             writeFile(d.filePath(QStringLiteral(".velt-compressor-backups/2026-01-02/"
                                                 "photo.original.jpg")),
                       "whole");
         },
         {QStringLiteral("backups/photo.original.jpg")}},
        {"hidden files that merely look alike are never touched",
         [&](const QDir& d) {
             writeFile(d.filePath(QStringLiteral(".photo.velt-temp.jpg")), "no uuid");
             writeFile(d.filePath(QStringLiteral(".photo.velt-replace-") + uuid.toLower() +
                                  QStringLiteral(".jpg")),
                       "lower-case uuid");
             writeFile(d.filePath(QStringLiteral(".notes")), "mine");
         },
         {QStringLiteral(".notes"),
          QStringLiteral(".photo.velt-replace-") + uuid.toLower() + QStringLiteral(".jpg"),
          QStringLiteral(".photo.velt-temp.jpg")}},
    };
    for (const Row& row : rows) {
        testing::IsolatedDataFolder data;
        QTemporaryDir folder;
        row.left(QDir(folder.path()));
        recoverInterruptedWork(folder.path());
        EXPECT_EQ(everything(folder.path()), row.after) << row.what;
        if (row.after == QStringList{QStringLiteral("photo.jpg")} &&
            !readOutputMarker(QDir(folder.path()).filePath(QStringLiteral("photo.jpg")))) {
            EXPECT_EQ(readFile(QDir(folder.path()).filePath(QStringLiteral("photo.jpg"))),
                      "original")
                << row.what;
        }
    }
}

TEST(Recovery, TheNamesTempURLMakesAreRecognisedAndNothingElse) {
    for (const char* name : {"photo.jpg", "Фото 1.HEIC", "noextension", ".hidden.jpg"}) {
        const QString path = QStringLiteral("/w/") + QString::fromUtf8(name);
        const QString temp = tempURL(path).section(QLatin1Char('/'), -1);
        const QString aside = tempURL(path, replaceFileMarker).section(QLatin1Char('/'), -1);
        EXPECT_TRUE(isTemporaryName(temp)) << temp.toStdString();
        EXPECT_FALSE(isMovedAsideName(temp)) << temp.toStdString();
        EXPECT_TRUE(isMovedAsideName(aside)) << aside.toStdString();
        EXPECT_EQ(originalNameOfMovedAside(aside), QString::fromUtf8(name));
    }
}

}  // namespace
}  // namespace velt
