#include "engine/encoders/tool_runner.h"

#include "encoders/standin_tools.h"
#include "engine/core/errors.h"
#include "platform/executable_check.h"

#include <elf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QFileInfo>
#include <QTemporaryDir>
#include <cstring>
#include <random>

namespace velt {
namespace {

using testing::installStandin;
using testing::ScopedEnvironment;
using namespace Qt::StringLiterals;

#if defined(__x86_64__)
constexpr std::uint16_t nativeMachine = EM_X86_64, foreignMachine = EM_AARCH64;
constexpr std::uint32_t nativeCpu = 0x01000007, foreignCpu = 0x0100000c;
#else
constexpr std::uint16_t nativeMachine = EM_AARCH64, foreignMachine = EM_X86_64;
constexpr std::uint32_t nativeCpu = 0x0100000c, foreignCpu = 0x01000007;
#endif

QByteArray elf(unsigned char elfClass, std::uint16_t type, std::uint16_t machine,
               unsigned char data = ELFDATA2LSB) {
    Elf64_Ehdr header{};
    const unsigned char ident[] = {0x7f, 'E', 'L', 'F', elfClass, data, EV_CURRENT};
    std::memcpy(header.e_ident, ident, sizeof ident);
    header.e_type = type;
    header.e_machine = machine;
    header.e_version = EV_CURRENT;
    return QByteArray(reinterpret_cast<const char*>(&header), sizeof header) + QByteArray(64, 0);
}

QByteArray word(std::uint32_t value, bool bigEndian) {
    QByteArray bytes;
    for (int i = 0; i < 4; ++i) bytes += char(value >> (bigEndian ? 24 - 8 * i : 8 * i));
    return bytes;
}

// Mach-O: a thin header, or a universal one listing `cpus` (20-byte entries).
QByteArray thin(std::uint32_t magic, std::uint32_t cpu) {
    return word(magic, false) + word(cpu, false) + QByteArray(24, 0);
}
QByteArray fat(std::initializer_list<std::uint32_t> cpus, std::uint32_t declared = 0) {
    QByteArray bytes = word(0xcafebabe, true) + word(declared ? declared : cpus.size(), true);
    for (std::uint32_t cpu : cpus) bytes += word(cpu, true) + QByteArray(16, 0);
    return bytes;
}

TEST(ExecutableCheck, AcceptsOnlyNativeExecutables) {
    QTemporaryDir folder;
    const QString fifo = folder.filePath(u"fifo"_s);
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0755), 0);
    const std::pair<QByteArray, bool> headers[] = {
        {elf(ELFCLASS64, ET_DYN, nativeMachine), true},
        {elf(ELFCLASS64, ET_DYN, foreignMachine), false},
        {elf(ELFCLASS32, ET_EXEC, nativeMachine), false},
        {elf(ELFCLASS64, ET_DYN, nativeMachine, ELFDATA2MSB), false},
        {elf(ELFCLASS64, ET_REL, nativeMachine), false},
        {elf(ELFCLASS64, ET_DYN, nativeMachine).left(20), false},
        {"#!/bin/sh\nexit 0\n", false},
        {{}, false},
        {thin(0xfeedfacf, nativeCpu), true},
        {thin(0xfeedfacf, foreignCpu), false},
        {fat({foreignCpu, nativeCpu}), true},
        {fat({foreignCpu}), false},
        {fat({foreignCpu}, 2), false},                                         // table cut short
        {word(0xcafebabe, true) + word(52, true) + QByteArray(64, 0), false},  // Java class
    };
    int index = 0;
    for (const auto& [content, expected] : headers) {
        const QString path = folder.filePath(QString::number(index++));
        testing::writeExecutable(path, content);
        EXPECT_EQ(executableSupportsCurrentArchitecture(path), expected) << index - 1;
    }
    for (const QString& path : {folder.path(), folder.filePath(u"missing"_s), fifo})
        EXPECT_FALSE(executableSupportsCurrentArchitecture(path)) << path.toStdString();
    EXPECT_TRUE(executableSupportsCurrentArchitecture(u"/bin/ls"_s));
}

TEST(ToolSearch, OverrideFirstThenFixedFoldersAndFallThrough) {
    const QString bundled =
        QDir::cleanPath(QFileInfo(QFileInfo(u"/proc/self/exe"_s).symLinkTarget()).path() +
                        u"/../libexec/velt-compressor/bin"_s);
    const QStringList fixed = {bundled, u"/opt/homebrew/bin/"_s, u"/usr/local/bin/"_s,
                               u"/usr/bin/"_s};
    for (const auto& [value, expected] :
         {std::pair{std::optional<QByteArray>(), fixed},
          std::pair{std::optional(QByteArray()), fixed},
          std::pair{std::optional(QByteArray("/srv/t")), QStringList{u"/srv/t"_s} + fixed}}) {
        const ScopedEnvironment override("VELT_TOOL_DIR", value);
        EXPECT_EQ(toolSearchDirectories(), expected);
    }
    const QString system = u"/usr/bin/cwebp"_s;
    for (const QString& before : fixed.mid(0, 3))
        if (QFile::exists(before + u"/cwebp"_s) || !QFile::exists(system))
            GTEST_SKIP() << "needs cwebp in /usr/bin/ and nowhere before it";
    // The override folder holds "cwebp" as: a native program (found), or anything else, which
    // falls through to /usr/bin/. An empty override is ignored, even in the working directory.
    for (const std::string_view name : {"native", "script", "no exec bit", "directory", "empty"}) {
        QTemporaryDir folder;
        const QString at = folder.filePath(u"cwebp"_s);
        if (name == "native" || name == "no exec bit" || name == "empty")
            installStandin(folder.path(), u"record"_s, u"cwebp"_s);
        if (name == "no exec bit") QFile::setPermissions(at, QFile::ReadOwner);
        if (name == "script") testing::writeExecutable(at, "#!/bin/sh\nexit 0\n");
        if (name == "directory") QDir(folder.path()).mkdir(u"cwebp"_s);
        const QString previous = QDir::currentPath();
        QDir::setCurrent(folder.path());
        const ScopedEnvironment override("VELT_TOOL_DIR",
                                         name == "empty" ? QByteArray() : folder.path().toUtf8());
        const auto found = toolURL(u"cwebp"_s);
        QDir::setCurrent(previous);
        EXPECT_EQ(found, std::optional(name == "native" ? at : system)) << name;
    }
}

// A tool's input goes through a pipe; one that fails without reading it, or never reads it, must
// neither kill this process (SIGPIPE) nor hold it.
TEST(RunTool, ExitStatusArgumentVectorInputAndStopWhileRunning) {
    QTemporaryDir dir;
    EngineLifecycle unstopped;
    QByteArray input(8'000'000, '\0');
    std::generate(input.begin(), input.end(), std::mt19937(3));
    const auto install = [&](const char* standin, const char* tool) {
        return installStandin(dir.path(), QString::fromUtf8(standin), QString::fromUtf8(tool));
    };
    const QString record = dir.filePath(u"record.txt"_s);
    const ScopedEnvironment recordVariable("VELT_STANDIN_RECORD", record.toUtf8());
    const QStringList arguments = {u"-q"_s, QString::fromUtf8("фото 1.png"), QString(), u"$HOME"_s,
                                   u"*"_s,  u"a;b|c && `d` 'e' \"f\" > g"_s};
    runTool(install("record", "cwebp"), arguments, unstopped);
    EXPECT_EQ(testing::readFile(record), arguments.join(u'\n').toUtf8() + "\n\n");
    // Far more output than any pipe holds: only a null device lets it finish.
    EXPECT_NO_THROW(runTool(install("noisy", "pngquant"), {}, unstopped));
    const QString copy = dir.filePath(u"copy"_s);
    runTool(u"/bin/cp"_s, {u"/dev/stdin"_s, copy}, unstopped, {}, testing::piecesOf(input, 77'777));
    EXPECT_TRUE(testing::readFile(copy) == input);
    const std::pair<QString, FileSystemError::Code> failures[] = {
        {install("exit1", "cjpeg"), FileSystemError::writeUnknown},
        {dir.filePath(u"missing"_s), FileSystemError::launchFailed},
        {dir.path(), FileSystemError::launchFailed},
    };
    for (const auto& [tool, code] : failures) {
        try {
            runTool(tool, {}, unstopped, {}, testing::piecesOf(input));
            ADD_FAILURE() << tool.toStdString();
        } catch (const FileSystemError& error) {
            EXPECT_EQ(error.code(), code) << tool.toStdString();
            EXPECT_TRUE(error.description().contains(code == FileSystemError::launchFailed
                                                         ? tool
                                                         : u"cjpeg failed with exit status 1"_s))
                << error.what();
        }
    }

    const QString tool = install("hang", "cjpeg");
    // The stand-in knows no VELT_STANDIN_PLAIN: it keeps the default answer to SIGTERM.
    for (const char* flag : {"VELT_STANDIN_PLAIN", "VELT_STANDIN_IGNORE_TERM"}) {
        EngineLifecycle lifecycle;
        const QString ready = dir.filePath(QString::fromUtf8(flag));
        const ScopedEnvironment readyVariable("VELT_STANDIN_READY", ready.toUtf8());
        const ScopedEnvironment behaviour(flag, QByteArray("1"));
        pid_t pid = -1;
        std::thread stopper([&] {
            pid = testing::waitForReadyPid(ready);
            lifecycle.requestStop();
        });
        const auto start = std::chrono::steady_clock::now();
        try {
            runTool(tool, {}, lifecycle, {}, testing::piecesOf(input));
            ADD_FAILURE() << "not cancelled";
        } catch (const FolderCompressorControlError& error) {
            EXPECT_EQ(error.kind(), FolderCompressorControlError::cancelled);
        }
        stopper.join();
        // A correctness bound (the stand-in would sleep 60 s), not a speed measurement.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << flag;
        ASSERT_GT(pid, 0);
        EXPECT_TRUE(testing::processGone(pid)) << flag;
    }
}

// A hostile file costs seconds, not minutes: a tool past its time is stopped, one past its
// memory is refused it, and either is reported as the file's failure.
TEST(RunTool, TimeAndMemoryLimits) {
    QTemporaryDir dir;
    EngineLifecycle lifecycle;
    const QString hang = installStandin(dir.path(), u"hang"_s, u"cwebp"_s);
    const ScopedEnvironment ignoreTerm("VELT_STANDIN_IGNORE_TERM", QByteArray("1"));
    try {
        runTool(hang, {}, lifecycle, ToolLimits{0, std::chrono::seconds(1)},
                testing::piecesOf(QByteArray(8'000'000, 'x')));
        ADD_FAILURE() << "no time limit";
    } catch (const FileSystemError& error) {
        EXPECT_EQ(error.description(), u"The tool cwebp took longer than 1 s and was stopped"_s);
    }
    const QString hog = installStandin(dir.path(), u"hog"_s, u"oxipng"_s);
    EXPECT_NO_THROW(runTool(hog, {}, lifecycle));
    try {
        runTool(hog, {}, lifecycle, ToolLimits{256LL << 20, std::chrono::seconds(0)});
        ADD_FAILURE() << "no memory limit";
    } catch (const FileSystemError& error) {
        EXPECT_EQ(error.description(), u"The tool oxipng failed with exit status 3"_s);
    }
    // The allowance grows with the picture and stays generous for real photos.
    EXPECT_GE(toolLimitsFor(48'000'000).memoryBytes, 1'200'000'000);
    EXPECT_GE(toolLimitsFor(48'000'000).time, std::chrono::seconds(150));
    EXPECT_LT(toolLimitsFor(1'000'000).memoryBytes, toolLimitsFor(48'000'000).memoryBytes);
}

}  // namespace
}  // namespace velt
