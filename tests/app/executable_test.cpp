// The real program on real folders: batch runs, headless watching and signals, start-up paths.
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <csignal>

namespace velt {
namespace {

using namespace velt::testing;

// Every file below `folder`, relative, sorted.
QStringList filesBelow(const QString& folder) {
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) files << QDir(folder).relativeFilePath(it.next());
    files.sort();
    return files;
}

QByteArray randomBytes(int size) {
    QByteArray bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(QRandomGenerator::global()->bounded(256));
    return bytes;
}

// The program with its own data and log folder and XDG folders, so nothing of the machine's
// user is read or written.
class ProgramTest : public ::testing::Test {
  protected:
    void start(QProcess& process, const QStringList& arguments,
               const QStringList& extraEnvironment = {}) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELT_CONFIG_DIR"), data_.path());
        environment.insert(QStringLiteral("VELT_LOG_DIR"), data_.path());
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                           data_.path() + QStringLiteral("/xdg"));
        environment.remove(QStringLiteral("VELT_LAUNCH_SMOKE"));
        environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        for (const QString& entry : extraEnvironment)
            environment.insert(entry.section(QLatin1Char('='), 0, 0),
                               entry.section(QLatin1Char('='), 1));
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(VELT_EXECUTABLE), arguments);
        ASSERT_TRUE(process.waitForStarted());
    }

    struct Finished {
        int exitCode;
        QString out;
        QString err;
    };
    Finished run(const QStringList& arguments, const QStringList& extraEnvironment = {}) {
        QProcess process;
        start(process, arguments, extraEnvironment);
        EXPECT_TRUE(process.waitForFinished(30000));
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QString log() const {
        return QString::fromUtf8(readFile(data_.filePath(QStringLiteral("native.log"))));
    }

    QTemporaryDir data_;
    QTemporaryDir folder_;
};

TEST_F(ProgramTest, OnceReportsEachFileAndFailsOnABrokenImage) {
    writeFile(folder_.filePath(QStringLiteral("broken.jpg")), randomBytes(4096));
    writeFile(folder_.filePath(QStringLiteral("notes.txt")), "not an image");
    const Finished once = run({QStringLiteral("--once"), folder_.path()});
    EXPECT_EQ(once.exitCode, 1) << once.err.toStdString();
    const QStringList lines = once.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2) << once.out.toStdString();
    EXPECT_TRUE(lines.at(0).startsWith(QStringLiteral("failed"))) << lines.at(0).toStdString();
    EXPECT_TRUE(lines.at(0).contains(QStringLiteral("broken.jpg")));
    EXPECT_EQ(lines.at(1), QStringLiteral("compressed 0, already optimal 0, failed 1, saved 0 B"));
    // The source is untouched and no temporary or backup file is left behind.
    EXPECT_EQ(filesBelow(folder_.path()),
              (QStringList{QStringLiteral("broken.jpg"), QStringLiteral("notes.txt")}));
    // A batch does not choose the folder.
    EXPECT_FALSE(QFileInfo::exists(data_.filePath(QStringLiteral("native-config.json"))));

    const QTemporaryDir empty;
    const Finished nothing = run({QStringLiteral("--once"), empty.path()});
    EXPECT_EQ(nothing.exitCode, 0);
    EXPECT_EQ(nothing.out,
              QStringLiteral("compressed 0, already optimal 0, failed 0, saved 0 B\n"));
}

TEST_F(ProgramTest, BadArgumentsExit2AndTouchNothing) {
    const QString missing = folder_.filePath(QStringLiteral("missing"));
    const QList<QStringList> cases = {
        {QStringLiteral("--once"), missing},
        {QStringLiteral("--headless"), QStringLiteral("--watch"), missing},
        {QStringLiteral("--once"), folder_.path(), QStringLiteral("--quality"),
         QStringLiteral("webp=200")},
        {QStringLiteral("--headless"), QStringLiteral("--bogus")},
    };
    for (const QStringList& arguments : cases) {
        const Finished finished = run(arguments);
        EXPECT_EQ(finished.exitCode, 2) << arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_TRUE(finished.out.isEmpty());
        EXPECT_TRUE(finished.err.startsWith(QStringLiteral("velt-compressor: ")));
        EXPECT_TRUE(finished.err.contains(QStringLiteral("\n\nUsage: velt-compressor")));
    }
    EXPECT_TRUE(filesBelow(data_.path()).isEmpty())
        << filesBelow(data_.path()).join(QLatin1Char(' ')).toStdString();
    EXPECT_TRUE(filesBelow(folder_.path()).isEmpty());
    EXPECT_FALSE(QFileInfo::exists(missing));
}

TEST_F(ProgramTest, HeadlessWithoutAFolderSaysHowToGiveOne) {
    const Finished finished = run({QStringLiteral("--headless")});
    EXPECT_EQ(finished.exitCode, 2);
    EXPECT_TRUE(finished.err.contains(QStringLiteral("Выберите папку для сжатия")))
        << finished.err.toStdString();
    EXPECT_TRUE(finished.err.contains(QStringLiteral("--watch")));
}

TEST_F(ProgramTest, LaunchSmokeExitsAtOnceWithoutWatching) {
    const Finished finished =
        run({QStringLiteral("--headless"), QStringLiteral("--watch"), folder_.path()},
            {QStringLiteral("VELT_LAUNCH_SMOKE=1")});
    EXPECT_EQ(finished.exitCode, 0);
    EXPECT_TRUE(log().contains(QStringLiteral("] Launch smoke complete\n")));
    EXPECT_FALSE(log().contains(QStringLiteral("Start watcher")));
}

TEST_F(ProgramTest, HeadlessWatchSavesTheFolderAndStopsCleanlyOnSigterm) {
    writeFile(folder_.filePath(QStringLiteral("broken.jpg")), randomBytes(2048));
    QProcess process;
    start(process, {QStringLiteral("--headless"), QStringLiteral("--watch"), folder_.path()});
    QByteArray err;
    // The broken image is noticed and reported as one line on standard error.
    for (int i = 0; i < 100 && !err.contains("broken.jpg"); ++i) {
        process.waitForReadyRead(100);
        err += process.readAllStandardError();
    }
    ASSERT_TRUE(err.contains("broken.jpg")) << err.toStdString();
    ::kill(static_cast<pid_t>(process.processId()), SIGTERM);
    ASSERT_TRUE(process.waitForFinished(10000));
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 0);
    EXPECT_TRUE(log().contains(QStringLiteral("Signal 15 received, stopping")));

    const QString config =
        QString::fromUtf8(readFile(data_.filePath(QStringLiteral("native-config.json"))));
    EXPECT_TRUE(config.contains(QStringLiteral("\"watchDirectory\":\"file://") + folder_.path() +
                                QStringLiteral("/\"")))
        << config.toStdString();
    EXPECT_TRUE(config.contains(QStringLiteral("\"enabled\":true")));
    // Nothing but the source remains, apart from what the engine deliberately keeps.
    for (const QString& file : filesBelow(folder_.path()))
        EXPECT_FALSE(file.contains(QStringLiteral(".velt-temp"))) << file.toStdString();

    // The next launch watches the saved folder without being told.
    QProcess again;
    start(again, {QStringLiteral("--headless")});
    QByteArray againErr;
    for (int i = 0; i < 50 && !againErr.contains(folder_.path().toUtf8()); ++i) {
        again.waitForReadyRead(100);
        againErr += again.readAllStandardError();
    }
    EXPECT_TRUE(againErr.contains(folder_.path().toUtf8())) << againErr.toStdString();
    ::kill(static_cast<pid_t>(again.processId()), SIGINT);
    ASSERT_TRUE(again.waitForFinished(10000));
    EXPECT_EQ(again.exitCode(), 0);
}

}  // namespace
}  // namespace velt
