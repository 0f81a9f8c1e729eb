// A start removes the private temporary folders that killed engines left, and nothing else.
#include "engine_test_rig.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

using namespace Qt::StringLiterals;

TEST(ScratchFolder, AStartRemovesTheFoldersOfEnginesThatAreGone) {
    QTemporaryDir temporary;
    testing::ScopedEnvironment tmpdir("TMPDIR", temporary.path().toUtf8());
    const QDir tmp(temporary.path());
    const auto make = [&](const QString& name, const QStringList& files, bool old) {
        ASSERT_TRUE(tmp.mkpath(name));
        for (const QString& file : files) testing::writeFile(tmp.filePath(name + u'/' + file), "x");
        const struct timespec times[2] = {{0, UTIME_OMIT},
                                          {::time(nullptr) - (old ? 7200 : 60), 0}};
        ASSERT_EQ(
            ::utimensat(AT_FDCWD, QFile::encodeName(tmp.filePath(name)).constData(), times, 0), 0);
    };
    const QString raster =
        u".IMG_1.velt-temp-jpeg-source-6F1C7C1E-6E0B-4A57-8D6A-2C3D4E5F6A7B.ppm"_s;
    make(u"velt-compressor-killed"_s, {u".owner"_s, raster}, false);  // nobody holds its lock
    make(u"velt-compressor-Earlyr"_s, {raster}, true);   // an earlier version's, an hour old
    make(u"velt-compressor-Recent"_s, {raster}, false);  // maybe still in use
    make(u"velt-compressor-Theirs"_s, {u"notes.txt"_s}, true);
    make(u"velt-compressor"_s, {raster}, true);
    ASSERT_EQ(::symlink(QFile::encodeName(tmp.filePath(u"velt-compressor-Theirs"_s)).constData(),
                        QFile::encodeName(tmp.filePath(u"velt-compressor-Linked"_s)).constData()),
              0);
    const auto ours = [&] {
        return tmp.entryList({u"velt-compressor*"_s}, QDir::AllEntries | QDir::NoDotAndDotDot);
    };
    const QStringList before = ours();

    testing::EngineRig first;
    testing::EngineRig second;  // the first engine's folder is in use: it stays
    QStringList expected = before;
    expected.removeAll(u"velt-compressor-killed"_s);
    expected.removeAll(u"velt-compressor-Earlyr"_s);
    const QStringList now = ours();
    EXPECT_EQ(now.size(), expected.size() + 2) << now.join(u' ').toStdString();
    for (const QString& name : expected) EXPECT_TRUE(now.contains(name)) << name.toStdString();
    EXPECT_TRUE(QFileInfo::exists(tmp.filePath(u"velt-compressor-Theirs/notes.txt"_s)));
    first.engine.reset();
    second.engine.reset();
    EXPECT_EQ(ours(), expected);
}

}  // namespace
}  // namespace velt
