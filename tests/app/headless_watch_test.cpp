// The headless program watching a real folder with the real pipeline.
#include "app_test_support.h"
#include "imageio/image_io.h"

#include <QFile>
#include <QThread>

namespace velt::testing {
namespace {

// A JPEG the engine can make smaller, written beside the folder and moved in, as a finished
// download arrives.
void writeJpeg(const QString& path, int seed = 7) {
    const QString staging = path + QStringLiteral(".staging");
    imageio::encodeImage(stripedPicture(320, 240, seed), ImageFormat::jpeg, 98, staging);
    ASSERT_TRUE(QFile::rename(staging, path));
}

// A "cjpeg" that never finishes, for the launches of this test: it writes its pid to the
// returned file once it runs.
QString useHangingEncoder(QProcessEnvironment& environment, const QTemporaryDir& tools,
                          const QTemporaryDir& data) {
    EXPECT_TRUE(
        QFile::link(QStringLiteral(VELT_HANG_TOOL), tools.filePath(QStringLiteral("cjpeg"))));
    const QString ready = data.filePath(QStringLiteral("encoder.pid"));
    environment.insert(QStringLiteral("VELT_TOOL_DIR"), tools.path());
    environment.insert(QStringLiteral("VELT_STANDIN_READY"), ready);
    return ready;
}

TEST_F(ProgramTest, StopsCleanlyMidEncodeThenCompressesADroppedImageOnce) {
    // A "cjpeg" that never finishes keeps the first launch inside an encode of photo.jpg.
    QTemporaryDir tools;
    const QString ready = useHangingEncoder(environment_, tools, data_);
    writeJpeg(file("photo.jpg"));
    const QByteArray source = readFile(file("photo.jpg"));
    QProcess first;
    launch(first, words("--headless --watch DIR", folder_.path()));
    ASSERT_TRUE(waitFor(first, [&] { return QFileInfo::exists(ready); })) << log().toStdString();
    const pid_t encoder = QString::fromUtf8(readFile(ready)).trimmed().toInt();
    ASSERT_GT(encoder, 0);
    terminate(first, SIGHUP);  // the terminal was closed
    // The encoder is gone (at most a zombie waiting for its new parent to reap it).
    const QByteArray state = readFile(QStringLiteral("/proc/%1/stat").arg(encoder));
    EXPECT_TRUE(state.isEmpty() || state.contains(") Z ")) << state.toStdString();
    EXPECT_EQ(entriesIn(folder_.path()), words("photo.jpg"));
    EXPECT_EQ(readFile(file("photo.jpg")), source);

    // With the real tools the saved folder is watched: the interrupted image is compressed
    // now, and then an image dropped into the folder.
    environment_.remove(QStringLiteral("VELT_TOOL_DIR"));
    QProcess second;
    launch(second, words("--headless"));
    ASSERT_TRUE(
        waitFor(second, [&] { return QFileInfo::exists(file("photo_veltcompressed.jpg")); }));
    writeJpeg(file("dropped.jpg"), 11);
    const QString output = file("dropped_veltcompressed.jpg");
    ASSERT_TRUE(waitFor(second, [&] { return QFileInfo::exists(output); })) << log().toStdString();
    terminate(second);
    EXPECT_LT(QFileInfo(output).size(), QFileInfo(file("dropped.jpg")).size());

    // A restart leaves the settled files alone: a file the registry did not settle would wait
    // for the stability interval and be processed a tick or two after the first scan.
    QProcess third;
    const qsizetype before = log().size();
    launch(third, words("--headless"));
    ASSERT_TRUE(waitFor(third, [&] {
        return log().mid(before).count(QStringLiteral("] Scan ") + folder_.path()) >= 1;
    })) << log().toStdString();
    third.waitForFinished(2500);
    terminate(third);
    EXPECT_EQ(log().count(QStringLiteral("Processed dropped")), 1) << log().toStdString();
}

// One engine per folder: a second launch on a watched folder says who holds it and exits 2,
// a batch too; once the first one is gone (even killed), the folder is free again.
TEST_F(ProgramTest, ASecondEngineOnTheSameFolderIsRefused) {
    QProcess first;
    launch(first, words("--headless --watch DIR", folder_.path()));
    ASSERT_TRUE(waitFor(first, [&] { return log().contains(QStringLiteral("Start watcher")); }));
    const QString holder = QString::number(first.processId());
    for (const char* arguments : {"--headless --watch DIR", "--once DIR"}) {
        const auto [exitCode, out, err] = run(arguments);
        EXPECT_EQ(exitCode, 2) << arguments;
        EXPECT_TRUE(err.contains(QStringLiteral("уже сжимает другая копия программы (процесс ") +
                                 holder + u')'))
            << arguments << err.toStdString();
    }
    first.kill();
    ASSERT_TRUE(first.waitForFinished(5000));
    EXPECT_EQ(std::get<0>(run("--once DIR")), 0);
}

// An encoder never outlives the program, not even when the program is killed outright, and the
// next start finds nothing of ours left in the folder.
TEST_F(ProgramTest, EncodersDieWithAKilledProgram) {
    QTemporaryDir tools;
    const QString ready = useHangingEncoder(environment_, tools, data_);
    writeJpeg(file("photo.jpg"));
    const QByteArray source = readFile(file("photo.jpg"));
    QProcess killed;
    launch(killed, words("--headless --watch DIR", folder_.path()));
    ASSERT_TRUE(waitFor(killed, [&] { return QFileInfo::exists(ready); })) << log().toStdString();
    const pid_t encoder = QString::fromUtf8(readFile(ready)).trimmed().toInt();
    ASSERT_GT(encoder, 0);
    // Mid-encode the watched folder holds nothing of ours: the intermediate picture and the
    // encoder's candidate are in the engine's private scratch folder (no sync client uploads them).
    EXPECT_EQ(entriesIn(folder_.path()), words("photo.jpg"));
    killed.kill();  // SIGKILL: no handler runs
    ASSERT_TRUE(killed.waitForFinished(5000));
    const auto gone = [&] {
        const QByteArray state = readFile(QStringLiteral("/proc/%1/stat").arg(encoder));
        return state.isEmpty() || state.contains(") Z ");
    };
    for (int i = 0; i < 50 && !gone(); ++i) QThread::msleep(20);
    EXPECT_TRUE(gone()) << "the encoder outlived the program";

    // A later run (a batch here) clears what the killed one left.
    environment_.remove(QStringLiteral("VELT_TOOL_DIR"));
    QProcess batch;
    launch(batch, words("--once DIR", folder_.path()));
    ASSERT_TRUE(batch.waitForFinished(30000));
    for (const QString& name : entriesIn(folder_.path()))
        EXPECT_FALSE(name.startsWith(QLatin1Char('.'))) << name.toStdString();
    EXPECT_EQ(readFile(file("photo.jpg")), source);
}

}  // namespace
}  // namespace velt::testing
