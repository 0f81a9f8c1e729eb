// Shared by the tests that run the real program: it gets its own data, log and XDG folders, so
// nothing of the machine's user is read or written.
#pragma once

#include "imageio/bitmap.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <csignal>
#include <tuple>

namespace velt::testing {

// "a b c" as separate arguments, with DIR standing for `dir`.
inline QStringList words(const char* line, const QString& dir = {}) {
    QStringList list = QString::fromUtf8(line).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    list.replaceInStrings(QStringLiteral("DIR"), dir);
    return list;
}

// What `folder` holds, hidden entries and folders included, sorted by name.
inline QStringList entriesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                  QDir::NoDotAndDotDot);
}

// A picture of stripes that vary with `seed`; JPEG at high quality compresses it well.
inline imageio::Bitmap stripedPicture(int width, int height, int seed) {
    imageio::Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.rgba.resize(static_cast<std::size_t>(width) * height * 4);
    for (std::size_t i = 0; i < bitmap.rgba.size(); ++i)
        bitmap.rgba[i] = (i % 4 == 3) ? 255 : static_cast<std::uint8_t>((i * seed) % 251);
    return bitmap;
}

class ProgramTest : public ::testing::Test {
  protected:
    QTemporaryDir data_;
    QTemporaryDir folder_;
    QByteArray err_;  // standard error collected while waiting

    // The program's environment; a test may add to it before a launch.
    QProcessEnvironment environment_ = [this] {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* folder : {"VELT_CONFIG_DIR", "VELT_LOG_DIR", "XDG_CONFIG_HOME"})
            environment.insert(QString::fromUtf8(folder), data_.path());
        environment.insert(QStringLiteral("VELT_DEBUG_LOG"), QStringLiteral("1"));
        environment.remove(QStringLiteral("VELT_LAUNCH_SMOKE"));
        environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        return environment;
    }();

    void launch(QProcess& process, const QStringList& arguments) {
        process.setProcessEnvironment(environment_);
        process.start(QStringLiteral(VELT_EXECUTABLE), arguments);
        ASSERT_TRUE(process.waitForStarted());
    }

    // The exit code, standard output and standard error of a run to its end; DIR in
    // `arguments` stands for the test folder.
    std::tuple<int, QString, QString> run(const char* arguments) {
        QProcess process;
        launch(process, words(arguments, folder_.path()));
        EXPECT_TRUE(process.waitForFinished(30000));
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    // Waits (at most 20 s) until `condition` holds, collecting standard error meanwhile.
    template <typename Condition>
    bool waitFor(QProcess& process, Condition condition) {
        for (int i = 0; i < 200 && !condition(); ++i) {
            process.waitForReadyRead(100);
            err_ += process.readAllStandardError();
        }
        return condition();
    }

    // SIGTERM (or SIGINT, or SIGHUP when the terminal closes) must end the program cleanly with
    // exit code 0.
    void terminate(QProcess& process, int signal = SIGTERM) {
        ::kill(static_cast<pid_t>(process.processId()), signal);
        ASSERT_TRUE(process.waitForFinished(10000));
        err_ += process.readAllStandardError();
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 0) << err_.toStdString();
    }

    QString file(const char* name) const { return folder_.filePath(QString::fromUtf8(name)); }
    QString log() const {
        return QString::fromUtf8(readFile(data_.filePath(QStringLiteral("native.log"))));
    }
};

}  // namespace velt::testing
