#include "model/native_log.h"
#include "model/paths.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

namespace velt {
namespace {

using testing::readFile;

class LogTest : public ::testing::Test {
  protected:
    testing::IsolatedDataFolder data;
    QString log = data.file(QStringLiteral("native.log"));
    QString tail = data.file(QStringLiteral("native.log.1"));
};

TEST_F(LogTest, LineFormat) {
    NativeLog::write(QStringLiteral("App launched — запуск"));
    const QString text = QString::fromUtf8(readFile(log));
    static const QRegularExpression line(QStringLiteral(
        R"(^\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2} \+0000\] App launched — запуск\n$)"));
    EXPECT_TRUE(line.match(text).hasMatch()) << text.toStdString();
    for (const char* value : {"", "on", "YES"}) {
        testing::ScopedEnvironment debug("VELT_DEBUG_LOG", QByteArray(value));
        NativeLog::debug(QString::fromLatin1(value));
    }
    EXPECT_EQ(readFile(log).count('\n'), 2) << "only YES turns debug lines on";
}

// Past 1 000 000 bytes the log starts afresh, its last 500 000 bytes kept in native.log.1.
TEST_F(LogTest, RotationAtExactSizes) {
    for (const qsizetype size : {1'000'000, 1'000'001}) {
        QFile::remove(tail);
        QByteArray body(size, 'a');
        for (qsizetype i = 0; i < size; i += 1000) body[i] = 'b';  // marks positions in the tail
        testing::writeFile(log, body);
        NativeLog::write(QStringLiteral("next"));
        const bool rotated = size > 1'000'000;
        EXPECT_EQ(QFile::exists(tail), rotated) << size;
        EXPECT_EQ(readFile(tail), rotated ? body.right(500'000) : QByteArray()) << size;
        EXPECT_EQ(readFile(log).startsWith(body), !rotated) << size;
        EXPECT_TRUE(readFile(log).endsWith("] next\n")) << size;
        EXPECT_EQ(readFile(log).count('\n'), 1) << size;
    }
}

TEST(LogDirectory, EmptyVariableMeansDefaultAndVariablesAreIndependent) {
    QTemporaryDir home;
    testing::ScopedEnvironment xdg("XDG_DATA_HOME", home.path().toUtf8());
    testing::ScopedEnvironment logDir("VELT_LOG_DIR", QByteArray(""));
    testing::ScopedEnvironment configDir("VELT_CONFIG_DIR", QByteArray("relative/not expanded ~"));
    EXPECT_EQ(veltLogDirectory(), home.path() + QStringLiteral("/velt compressor"));
    EXPECT_EQ(veltApplicationSupportDirectory(), QStringLiteral("relative/not expanded ~"));
}

TEST(LogFailure, UnwritableLogFolderIsSilent) {
    QTemporaryDir root;
    testing::writeFile(root.filePath(QStringLiteral("file")), "x");
    testing::ScopedEnvironment logDir("VELT_LOG_DIR",
                                      root.filePath(QStringLiteral("file/logs")).toUtf8());
    NativeLog::write(QStringLiteral("lost"));  // must neither throw nor crash
    EXPECT_FALSE(QFileInfo::exists(root.filePath(QStringLiteral("file/logs"))));
}

TEST(LogConcurrency, LinesFromManyThreadsStayWhole) {
    testing::IsolatedDataFolder data;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i)
                NativeLog::write(QStringLiteral("thread %1 line %2").arg(t).arg(i));
        });
    for (auto& thread : threads) thread.join();
    const auto lines = readFile(data.file(QStringLiteral("native.log"))).split('\n');
    EXPECT_EQ(lines.size(), 201);  // 200 lines and the empty rest after the last feed
    for (int i = 0; i < 200; ++i) EXPECT_TRUE(lines[i].contains("] thread ")) << lines[i].data();
}

}  // namespace
}  // namespace velt
