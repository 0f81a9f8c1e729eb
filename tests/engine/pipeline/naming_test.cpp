// Output naming and collisions: the engine never writes over, moves aside or removes a file it
// did not write, and sources that share a base name each keep their own output.
#include "engine/core/errors.h"
#include "engine/pipeline/output_naming.h"
#include "engine/pipeline/process.h"
#include "imageio/image_io.h"
#include "support/test_environment.h"
#include "support/test_images.h"
#include "watcher/engine_test_rig.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

using namespace Qt::StringLiterals;

using testing::readFile;
using testing::writeFile;

class NamingTest : public ::testing::Test, protected testing::ContextRig {
  protected:
    void setAge(const QString& path, int secondsAgo) {
        QFile handle(path);
        ASSERT_TRUE(handle.open(QIODevice::ReadWrite));
        ASSERT_TRUE(handle.setFileTime(QDateTime::currentDateTime().addSecs(-secondsAgo),
                                       QFileDevice::FileModificationTime));
    }

    QStringList folderNames() const { return testing::fileNamesIn(folder.path()); }
};

// What stands under the first-choice name when a source is named.
enum class Occupant { nothing, ownOutput, otherSourcesOutput, usersOlderFile, usersNewerFile };

TEST_F(NamingTest, TheFirstChoiceIsTakenOnlyWhenFreeOrTheEnginesOwnForThisSource) {
    struct Row {
        OriginalPolicy policy;
        ImageFormat target;  // the source is a PNG
        Occupant occupant;
        const char* expected;
    };
    using enum Occupant;
    const auto keep = OriginalPolicy::keep;
    const auto replace = OriginalPolicy::replace;
    const Row rows[] = {
        {keep, ImageFormat::jpeg, nothing, "photo_veltcompressed.jpg"},
        {keep, ImageFormat::jpeg, ownOutput, "photo_veltcompressed.jpg"},
        {keep, ImageFormat::jpeg, otherSourcesOutput, "photo-2_veltcompressed.jpg"},
        {keep, ImageFormat::jpeg, usersOlderFile, "photo-2_veltcompressed.jpg"},
        // Not older than the source: it settles the source as up to date, untouched.
        {keep, ImageFormat::jpeg, usersNewerFile, "photo_veltcompressed.jpg"},
        {keep, ImageFormat::png, otherSourcesOutput, "photo-2_veltcompressed.png"},
        {replace, ImageFormat::jpeg, nothing, "photo.jpg"},
        {replace, ImageFormat::jpeg, ownOutput, "photo.jpg"},
        {replace, ImageFormat::jpeg, otherSourcesOutput, "photo-2.jpg"},
        {replace, ImageFormat::jpeg, usersOlderFile, "photo-2.jpg"},
        {replace, ImageFormat::jpeg, usersNewerFile, "photo-2.jpg"},
        // Compressed in place: its own name, whatever stands elsewhere.
        {replace, ImageFormat::png, usersNewerFile, "photo.png"},
    };
    for (const Row& row : rows) {
        QTemporaryDir fresh;
        context.processedRegistry = std::make_shared<ProcessedFileRegistry>(u":memory:"_s);
        context.config.originalPolicy = row.policy;
        const QString source = QDir(fresh.path()).filePath(u"photo.png"_s);
        writeFile(source, "source");
        setAge(source, 100);
        const QString first =
            QDir(fresh.path())
                .filePath(u"photo"_s + (row.policy == keep ? u"_veltcompressed"_s : QString()) +
                          QLatin1Char('.') + fileExtension(row.target));
        if (row.occupant != nothing && first != source) {
            writeFile(first, "occupant");
            setAge(first, row.occupant == usersOlderFile ? 200 : 10);
            if (row.occupant == ownOutput) recordOutput(source, first);
            if (row.occupant == otherSourcesOutput)
                recordOutput(QDir(fresh.path()).filePath(u"photo.heic"_s), first);
        }
        const QString output = outputPath(context, source, ImageFormat::png, row.target);
        EXPECT_EQ(QFileInfo(output).fileName().toStdString(), row.expected) << &row - rows;
    }
}

TEST_F(NamingTest, OwnOutputChangedByTheUserIsNoLongerTheEngines) {
    const QString source = file(u"a.png"_s);
    const QString output = file(u"a_veltcompressed.jpg"_s);
    writeFile(source, "source");
    setAge(source, 10);
    writeFile(output, "what the engine wrote");
    recordOutput(source, output);
    EXPECT_TRUE(isOwnOutputOf(context, output, source));
    EXPECT_FALSE(isOwnOutputOf(context, output, file(u"a.webp"_s)));
    writeFile(output, "the user's own edit of it");
    setAge(output, 100);
    EXPECT_FALSE(isOwnOutputOf(context, output, source));
    EXPECT_EQ(outputPath(context, source, ImageFormat::png, ImageFormat::jpeg),
              file(u"a-2_veltcompressed.jpg"_s));
}

// Sources that share a base name, every one converted to JPEG, in both policies: nothing of the
// user's is lost, each source keeps its own output, a second pass changes nothing.
TEST_F(NamingTest, SourcesSharingABaseNameEachKeepTheirOwnOutput) {
    const auto photo = testing::photoLikeBitmap(96, 64);
    for (const auto policy : {OriginalPolicy::replace, OriginalPolicy::keep}) {
        QTemporaryDir fresh;
        const QDir dir(fresh.path());
        context.watchDirectory = fresh.path();
        context.processedRegistry = std::make_shared<ProcessedFileRegistry>(u":memory:"_s);
        context.files.clear();
        context.config.originalPolicy = policy;
        context.config.formatStrategy = FormatStrategy::jpeg;
        // The user's own photo.jpg, and a file of theirs that merely looks like an output.
        const QString usersJPEG = dir.filePath(u"photo.jpg"_s);
        ASSERT_TRUE(testing::writeJPEGWithCjpeg(photo, 90, usersJPEG));
        const QByteArray usersBytes = readFile(usersJPEG);
        const QString lookalike = dir.filePath(u"photo_veltcompressed.webp"_s);
        writeFile(lookalike, "the user's own file");
        setAge(lookalike, 1000);
        QStringList sources;
        for (const auto format : {ImageFormat::png, ImageFormat::heic}) {
            const QString path = dir.filePath(u"photo."_s + fileExtension(format));
            imageio::encodeImage(photo, format, 80, path);
            setAge(path, 500);
            sources << path;
        }
        for (int pass = 0; pass < 2; ++pass) {
            for (const QString& source : sources) {
                if (!QFileInfo::exists(source)) continue;
                const FolderCompressionResult result = process(context, source);
                if (pass == 1) {
                    EXPECT_FALSE(result.didWrite) << source.toStdString();
                    continue;
                }
                ASSERT_TRUE(result.didWrite)
                    << source.toStdString() << " policy " << static_cast<int>(policy) << " "
                    << readFile(data.file(u"native.log"_s)).toStdString();
                ASSERT_TRUE(result.historyEntry && result.historyEntry->outputURL);
                EXPECT_TRUE(testing::decodeIndependently(*result.historyEntry->outputURL));
            }
        }
        EXPECT_EQ(readFile(usersJPEG), usersBytes);
        EXPECT_EQ(readFile(lookalike), "the user's own file");
        QStringList names = dir.entryList(QDir::Files | QDir::Hidden);
        names.sort();
        const QStringList expected =
            policy == OriginalPolicy::replace
                ? QStringList{u"photo-2.jpg"_s, u"photo-3.jpg"_s, u"photo.jpg"_s,
                              u"photo_veltcompressed.webp"_s}
                : QStringList{u"photo-2_veltcompressed.jpg"_s,
                              u"photo.heic"_s,
                              u"photo.jpg"_s,
                              u"photo.png"_s,
                              u"photo_veltcompressed.jpg"_s,
                              u"photo_veltcompressed.webp"_s};
        EXPECT_EQ(names, expected) << names.join(QLatin1Char(' ')).toStdString();
    }
}

// Compressed again in another format, a source loses the engine's earlier output, and only that.
TEST_F(NamingTest, StaleOutputRemovalTakesOnlyTheEnginesOwnOutputOfThatSource) {
    const QString source = file(u"logo.png"_s);
    imageio::encodeImage(testing::photoLikeBitmap(80, 60, true), ImageFormat::png, 0, source);
    setAge(source, 100);
    context.config.formatStrategy = FormatStrategy::jpeg;
    ASSERT_TRUE(process(context, source).didWrite);
    const QString ownJPEG = file(u"logo_veltcompressed.jpg"_s);
    ASSERT_TRUE(QFileInfo::exists(ownJPEG));
    writeFile(file(u"logo_veltcompressed.avif"_s), "the user's file");

    context.config.formatStrategy = FormatStrategy::webp;
    EXPECT_FALSE(process(context, source).didWrite) << "a change of settings reached back";
    context.redo = true;
    ASSERT_TRUE(process(context, source).didWrite);
    EXPECT_EQ(folderNames(), (QStringList{u"logo.png"_s, u"logo_veltcompressed.avif"_s,
                                          u"logo_veltcompressed.webp"_s}));
    EXPECT_TRUE(readFile(data.file(u"native.log"_s))
                    .contains("Removed stale output logo_veltcompressed.jpg"));
}

// Links are never followed: a link under the output's name (to a newer file of someone else's)
// neither settles the source nor is written through; a linked backup folder is refused.
TEST_F(NamingTest, SymbolicLinksAreNeitherOutputsNorBackupFolders) {
    QTemporaryDir elsewhere;
    const QString unrelated = QDir(elsewhere.path()).filePath(u"unrelated.jpg"_s);
    writeFile(unrelated, "someone else's");
    const QString source = file(u"a.png"_s);
    imageio::encodeImage(testing::photoLikeBitmap(80, 60), ImageFormat::png, 0, source);
    setAge(source, 100);
    const auto link = [](const QString& target, const QString& name) {
        ASSERT_EQ(
            ::symlink(QFile::encodeName(target).constData(), QFile::encodeName(name).constData()),
            0);
    };
    link(unrelated, file(u"a_veltcompressed.jpg"_s));
    context.config.formatStrategy = FormatStrategy::jpeg;
    ASSERT_TRUE(process(context, source).didWrite) << "a link settled the source";
    EXPECT_TRUE(QFileInfo::exists(file(u"a-2_veltcompressed.jpg"_s)));
    EXPECT_EQ(readFile(unrelated), "someone else's");
    EXPECT_EQ(readFile(data.file(u"native.log"_s)).count("Symbolic link a_veltcompressed.jpg"), 1);

    link(elsewhere.path(), file(u".velt-compressor-backups"_s));
    context.config.originalPolicy = OriginalPolicy::replace;
    const QString replaced = file(u"b.png"_s);
    ASSERT_TRUE(QFile::copy(source, replaced));
    EXPECT_THROW(process(context, replaced), FileSystemError);
    EXPECT_EQ(readFile(replaced), readFile(source));
    EXPECT_EQ(QDir(elsewhere.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList{u"unrelated.jpg"_s});
}

// A file that appears under the output's name while the image is being encoded is the user's.
TEST_F(NamingTest, AFileThatAppearsUnderTheOutputNameMeanwhileIsLeftAlone) {
    context.config.originalPolicy = OriginalPolicy::replace;
    context.config.formatStrategy = FormatStrategy::jpeg;
    const QString source = file(u"late.png"_s);
    imageio::encodeImage(testing::photoLikeBitmap(80, 60), ImageFormat::png, 0, source);
    const QByteArray original = readFile(source);
    callbacks.onBeforeDestructiveInstallForTesting = [this](const QString&) {
        writeFile(file(u"late.jpg"_s), "saved by the user just now");
    };
    EXPECT_THROW(process(context, source), std::exception);
    EXPECT_EQ(readFile(file(u"late.jpg"_s)), "saved by the user just now");
    EXPECT_EQ(readFile(source), original);
    for (const QString& name : folderNames())
        EXPECT_FALSE(name.startsWith(QLatin1Char('.'))) << name.toStdString();
}

// Outputs keep the source's access: permission bits always, owner and group where allowed; and
// every name the file system accepts can be processed, however long.
TEST_F(NamingTest, OutputsKeepTheSourcesAccessAndLongNamesWork) {
    const auto photo = testing::photoLikeBitmap(64, 48);
    struct Row {
        OriginalPolicy policy;
        FormatStrategy strategy;
        QString name;
        mode_t mode;
    };
    // 84 three-byte characters + ".png" = 256 bytes is too long; 83 (253 bytes) is accepted.
    const QString longBase = QString(83, QChar(0x5199));
    const Row rows[] = {
        {OriginalPolicy::replace, FormatStrategy::automatic, u"a.png"_s, 0600},
        {OriginalPolicy::replace, FormatStrategy::jpeg, u"b.png"_s, 0640},
        {OriginalPolicy::keep, FormatStrategy::webp, u"c.png"_s, 0604},
        {OriginalPolicy::replace, FormatStrategy::automatic, longBase + u".png"_s, 0644},
        // Too long once the suffix is added: the base is shortened, the suffix kept.
        {OriginalPolicy::keep, FormatStrategy::webp, QString(83, QChar(0x6587)) + u".png"_s, 0600},
    };
    for (const Row& row : rows) {
        context.config.originalPolicy = row.policy;
        context.config.formatStrategy = row.strategy;
        const QString source = file(row.name);
        imageio::encodeImage(photo, ImageFormat::png, 0, source);
        ASSERT_EQ(::chmod(QFile::encodeName(source).constData(), row.mode), 0);
        if (testing::runningAsRoot()) {
            ASSERT_EQ(::chown(QFile::encodeName(source).constData(), 1234, 4321), 0);
        }
        const FolderCompressionResult result = process(context, source);
        ASSERT_TRUE(result.didWrite)
            << row.name.toStdString() << " "
            << (result.nothingDoneReason ? code(result.nothingDoneReason->id).toStdString() : "")
            << (result.historyEntry ? static_cast<int>(result.historyEntry->status) : -1);
        const QString output = *result.historyEntry->outputURL;
        struct stat info {};
        ASSERT_EQ(::stat(QFile::encodeName(output).constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, row.mode) << output.toStdString();
        if (testing::runningAsRoot()) {
            EXPECT_EQ(info.st_uid, 1234u);
            EXPECT_EQ(info.st_gid, 4321u);
        }
        const QString name = QFileInfo(output).fileName();
        EXPECT_LE(name.toUtf8().size(), 255);
        if (row.policy == OriginalPolicy::keep) {
            EXPECT_TRUE(name.endsWith(u"_veltcompressed.webp"_s));
        }
    }
    for (const QString& name : folderNames())
        EXPECT_FALSE(name.startsWith(QLatin1Char('.'))) << name.toStdString();
}

}  // namespace
}  // namespace velt
