// The headless program watching a real folder with the real pipeline: a dropped image is
// compressed once, across restarts; a stop during an encode leaves nothing behind.
#include "imageio/image_io.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <csignal>

namespace velt {
namespace {

using namespace velt::testing;

// A noisy photograph-like JPEG at high quality: the engine can always make it smaller.
void writeJpeg(const QString& path) {
    imageio::Bitmap bitmap;
    bitmap.width = 320;
    bitmap.height = 240;
    bitmap.rgba.resize(bitmap.rowBytes() * bitmap.height);
    auto* random = QRandomGenerator::global();
    for (std::size_t i = 0; i < bitmap.rgba.size(); i += 4) {
        const auto x = (i / 4) % 320;
        bitmap.rgba[i] = static_cast<std::uint8_t>(x + random->bounded(40));
        bitmap.rgba[i + 1] = static_cast<std::uint8_t>(x / 2 + random->bounded(40));
        bitmap.rgba[i + 2] = static_cast<std::uint8_t>(random->bounded(256));
        bitmap.rgba[i + 3] = 255;
    }
    // Written beside the folder and moved in, as a finished download arrives.
    const QString staging = path + QStringLiteral(".staging");
    imageio::encodeImage(bitmap, ImageFormat::jpeg, 98, staging);
    ASSERT_TRUE(QFile::rename(staging, path));
}

QStringList filesBelow(const QString& folder) {
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) files << QDir(folder).relativeFilePath(it.next());
    files.sort();
    return files;
}

class HeadlessWatchTest : public ::testing::Test {
  protected:
    HeadlessWatchTest() { EXPECT_TRUE(QDir().mkpath(inbox())); }

    QString inbox() const { return folder_.filePath(QStringLiteral("inbox")); }
    QString inInbox(const QString& name) const { return QDir(inbox()).filePath(name); }
    QString log() const {
        return QString::fromUtf8(readFile(data_.filePath(QStringLiteral("native.log"))));
    }

    void launch(QProcess& process, const QStringList& arguments,
                const QStringList& extraEnvironment = {}) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELT_CONFIG_DIR"), data_.path());
        environment.insert(QStringLiteral("VELT_LOG_DIR"), data_.path());
        environment.insert(QStringLiteral("VELT_DEBUG_LOG"), QStringLiteral("1"));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                           data_.filePath(QStringLiteral("xdg")));
        environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        for (const QString& entry : extraEnvironment)
            environment.insert(entry.section(QLatin1Char('='), 0, 0),
                               entry.section(QLatin1Char('='), 1));
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(VELT_EXECUTABLE), arguments);
        ASSERT_TRUE(process.waitForStarted());
    }

    // Waits (at most `seconds`) until `condition` holds, collecting standard error meanwhile.
    template <typename Condition>
    bool waitFor(QProcess& process, Condition condition, int seconds = 20) {
        for (int i = 0; i < seconds * 10 && !condition(); ++i) {
            process.waitForReadyRead(100);
            err_ += process.readAllStandardError();
        }
        return condition();
    }

    void terminate(QProcess& process) {
        ::kill(static_cast<pid_t>(process.processId()), SIGTERM);
        ASSERT_TRUE(process.waitForFinished(10000));
        err_ += process.readAllStandardError();
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 0) << err_.toStdString();
    }

    QTemporaryDir data_;
    QTemporaryDir folder_;
    QByteArray err_;
};

TEST_F(HeadlessWatchTest, ADroppedImageIsCompressedOnceAcrossRestarts) {
    QProcess first;
    launch(first, {QStringLiteral("--headless"), QStringLiteral("--watch"), inbox()});
    writeJpeg(inInbox(QStringLiteral("photo.jpg")));
    const QString output = inInbox(QStringLiteral("photo_veltcompressed.jpg"));
    ASSERT_TRUE(waitFor(first, [&] { return err_.contains("photo.jpg"); })) << err_.toStdString();
    terminate(first);
    ASSERT_TRUE(QFileInfo::exists(output)) << err_.toStdString();
    EXPECT_LT(QFileInfo(output).size(), QFileInfo(inInbox(QStringLiteral("photo.jpg"))).size());
    EXPECT_TRUE(err_.contains("photo.jpg"));
    const QDateTime installed = QFileInfo(output).lastModified();

    // The next launch watches the saved folder and leaves the settled file alone.
    QProcess second;
    launch(second, {QStringLiteral("--headless")});
    const qsizetype secondLaunch = log().lastIndexOf(QStringLiteral("App launched"));
    ASSERT_TRUE(waitFor(second, [&] {
        return log().mid(secondLaunch).count(QStringLiteral("] Scan ") + inbox()) >= 3;
    })) << log().toStdString();
    terminate(second);
    EXPECT_EQ(log().count(QStringLiteral("Processed photo.jpg")), 1) << log().toStdString();
    EXPECT_EQ(QFileInfo(output).lastModified(), installed);
}

TEST_F(HeadlessWatchTest, OnceCompressesWhatIsThereAndRemembersIt) {
    writeJpeg(inInbox(QStringLiteral("photo.jpg")));
    const auto once = [&] {
        QProcess process;
        launch(process, {QStringLiteral("--once"), inbox(), QStringLiteral("--quality"),
                         QStringLiteral("jpeg=60")});
        EXPECT_TRUE(process.waitForFinished(30000));
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        return QString::fromUtf8(process.readAllStandardOutput())
            .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    };
    const QStringList first = once();
    ASSERT_EQ(first.size(), 2);
    EXPECT_TRUE(first.at(0).startsWith(QStringLiteral("compressed       photo.jpg  saved ")));
    EXPECT_TRUE(first.at(1).startsWith(
        QStringLiteral("compressed 1, already optimal 0, failed 0, saved ")));
    EXPECT_TRUE(QFileInfo::exists(inInbox(QStringLiteral("photo_veltcompressed.jpg"))));
    // The run's settings and folder are not saved.
    EXPECT_FALSE(QFileInfo::exists(data_.filePath(QStringLiteral("native-config.json"))));

    const QStringList second = once();
    ASSERT_EQ(second.size(), 2);
    EXPECT_TRUE(second.at(0).startsWith(QStringLiteral("skipped          photo.jpg")));
    EXPECT_EQ(second.at(1), QStringLiteral("compressed 0, already optimal 0, failed 0, saved 0 B"));
}

TEST_F(HeadlessWatchTest, SigtermDuringAnEncodeEndsTheEncoderAndLeavesNothingBehind) {
    // A "cjpeg" that never finishes keeps the engine inside an encode.
    QTemporaryDir tools;
    ASSERT_TRUE(
        QFile::copy(QStringLiteral(VELT_HANG_TOOL), tools.filePath(QStringLiteral("cjpeg"))));
    ASSERT_TRUE(QFile::setPermissions(tools.filePath(QStringLiteral("cjpeg")),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    const QString ready = data_.filePath(QStringLiteral("encoder.pid"));
    writeJpeg(inInbox(QStringLiteral("photo.jpg")));
    const QByteArray source = readFile(inInbox(QStringLiteral("photo.jpg")));

    QProcess process;
    launch(process, {QStringLiteral("--headless"), QStringLiteral("--watch"), inbox()},
           {QStringLiteral("VELT_TOOL_DIR=") + tools.path(),
            QStringLiteral("VELT_STANDIN_READY=") + ready});
    if (!waitFor(process, [&] { return QFileInfo::exists(ready); })) {
        terminate(process);
        GTEST_SKIP() << "the JPEG path did not run cjpeg: " << log().toStdString();
    }
    const pid_t encoder = QString::fromUtf8(readFile(ready)).trimmed().toInt();
    ASSERT_GT(encoder, 0);
    terminate(process);

    // The encoder is gone (at most a zombie waiting for its new parent to reap it).
    const QByteArray state = readFile(QStringLiteral("/proc/%1/stat").arg(encoder));
    EXPECT_TRUE(state.isEmpty() || state.contains(") Z ")) << state.toStdString();
    EXPECT_EQ(filesBelow(inbox()), QStringList{QStringLiteral("photo.jpg")});
    EXPECT_EQ(readFile(inInbox(QStringLiteral("photo.jpg"))), source);
    EXPECT_TRUE(log().contains(QStringLiteral("Signal 15 received, stopping")));
}

}  // namespace
}  // namespace velt
