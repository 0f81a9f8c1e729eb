// Recovery at start, as a table: what a killed run left in the folder → what the next start does.
#include "engine/install/recovery.h"
#include "engine/install/output_marker.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QCryptographicHash>
#include <QDir>
#include <QTemporaryDir>

namespace velt {
namespace {

using namespace Qt::StringLiterals;

const QString uuid = u"0F8FAD5B-D9CB-469F-A165-70867728950E"_s;
const QString day = u".velt-compressor-backups/2026-01-02/"_s;

// The files of the folder and of its backup day folder (as "backups/NAME"), sorted.
QStringList everything(const QString& folder) {
    QStringList names = QDir(folder).entryList(QDir::Files | QDir::Hidden);
    for (const QString& name : QDir(folder + u'/' + day).entryList(QDir::Files | QDir::Hidden))
        names << u"backups/"_s + name;
    names.sort();
    return names;
}

TEST(Recovery, WhatAKilledRunLeftIsPutBackOrRemoved) {
    struct Row {
        const char* what;
        std::vector<std::pair<QString, QByteArray>> left;  // the files a killed run left
        QByteArray installedFrom;  // photo.jpg is an output of ours made from this content
        QStringList after;         // every file after the next start
    };
    const QString aside = u".photo.velt-replace-"_s + uuid + u".jpg"_s;
    const QString photo = u"photo.jpg"_s;
    const QString lowerCase = u".photo.velt-replace-"_s + uuid.toLower() + u".jpg"_s;
    const Row rows[] = {
        {"an original moved aside, its name free: it comes back",
         {{aside, "original"}},
         {},
         {photo}},
        {"moved aside, the finished install made from it in place: the aside goes",
         {{aside, "original"}, {photo, "compressed"}},
         "original",
         {photo}},
        {"moved aside, a file of someone else's under its name: both stay",
         {{aside, "original"}, {photo, "the user's new photo"}},
         {},
         {aside, photo}},
        {"moved aside, an install of ours from different content under its name: both stay",
         {{aside, "original"}, {photo, "compressed"}},
         "another original",
         {aside, photo}},
        {"a file without an extension comes back without one",
         {{u".README.velt-replace-"_s + uuid + u".tmp"_s, "text"}},
         {},
         {u"README"_s}},
        {"temporary outputs, intermediates and backup copies of ours go",
         {{u".photo.velt-temp-"_s + uuid + u".jpg"_s, "half"},
          {u".photo.velt-temp-jpeg-source-"_s + uuid + u".ppm"_s, "P6"},
          {day + u".photo.original.velt-temp-"_s + uuid + u".jpg"_s, "truncat"},
          {day + u"photo.original.jpg"_s, "whole"}},
         {},
         {u"backups/photo.original.jpg"_s}},
        {"hidden files that merely look alike are never touched",
         {{u".photo.velt-temp.jpg"_s, "no uuid"},
          {lowerCase, "lower-case uuid"},
          {u".notes"_s, "mine"}},
         {},
         {u".notes"_s, lowerCase, u".photo.velt-temp.jpg"_s}},
    };
    for (const Row& row : rows) {
        testing::IsolatedDataFolder data;
        QTemporaryDir folder;
        const QDir dir(folder.path());
        for (const auto& [name, bytes] : row.left) {
            dir.mkpath(QFileInfo(dir.filePath(name)).path());
            testing::writeFile(dir.filePath(name), bytes);
        }
        if (!row.installedFrom.isEmpty()) {
            const QString installed = dir.filePath(photo);
            ASSERT_TRUE(writeOutputMarker(
                installed, {u"key"_s, installed,
                            QCryptographicHash::hash(row.installedFrom, QCryptographicHash::Sha256),
                            *contentFingerprint(installed)}));
        }
        recoverInterruptedWork(folder.path());
        EXPECT_EQ(everything(folder.path()), row.after) << row.what;
        // A file that came back holds the original bytes.
        if (row.after == QStringList{photo} && row.installedFrom.isEmpty()) {
            EXPECT_EQ(testing::readFile(dir.filePath(photo)), "original") << row.what;
        }
    }
}

}  // namespace
}  // namespace velt
