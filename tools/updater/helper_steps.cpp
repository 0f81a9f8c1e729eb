#include "helper_steps.h"
#include "model/file_descriptor.h"

#include "model/paths.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstdio>
#include <utility>

extern char** environ;

namespace velt::updater {
namespace {

std::filesystem::path programIn(const std::filesystem::path& bundle) {
    return bundle / "bin" / "velt-compressor";
}

// Owns the spawn attributes and file actions for one launch.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
};

}  // namespace

void logLine(const std::string& message) {
    const QString folder = veltLogDirectory();
    QDir().mkpath(folder);
    QFile log(QDir(folder).filePath(QStringLiteral("updater.log")));
    if (!log.open(QIODevice::Append)) return;
    const QString stamp =
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"));
    log.write((QStringLiteral("[") + stamp + QStringLiteral("] ")).toUtf8() + message.c_str() +
              "\n");
}

bool waitForProcessEnd(pid_t pid, std::chrono::seconds limit) {
    const FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (process.get() < 0) return errno == ESRCH;
    pollfd ready{process.get(), POLLIN, 0};
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(limit);
    int result = 0;
    do {
        result = ::poll(&ready, 1, static_cast<int>(milliseconds.count()));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

std::string reportedVersion(const std::filesystem::path& bundle) {
    int pipeEnds[2];
    if (::pipe2(pipeEnds, O_CLOEXEC) != 0) return {};
    FileDescriptor readEnd(pipeEnds[0]);
    FileDescriptor writeEnd(pipeEnds[1]);
    SpawnSetup setup;
    posix_spawn_file_actions_adddup2(&setup.actions, writeEnd.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&setup.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const std::string program = programIn(bundle).string();
    char* const arguments[] = {const_cast<char*>(program.c_str()), const_cast<char*>("--version"),
                               nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, program.c_str(), &setup.actions, &setup.attributes, arguments,
                    environ) != 0)
        return {};
    ::close(writeEnd.release());
    std::string output;
    pollfd readable{readEnd.get(), POLLIN, 0};
    char buffer[512];
    bool answered = false;
    // Read to the end of its output; a program silent for 30 s is killed.
    while (output.size() < 4096 && ::poll(&readable, 1, 30'000) > 0) {
        const ssize_t got = ::read(readEnd.get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            answered = got == 0;
            break;
        }
        output.append(buffer, static_cast<std::size_t>(got));
    }
    if (!answered) ::kill(child, SIGKILL);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const std::string firstLine = output.substr(0, output.find('\n'));
    if (!answered || !WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
        firstLine.rfind("VELT | Compressor ", 0) != 0)
        return {};
    return firstLine;
}

bool exchangeFolders(const std::filesystem::path& first, const std::filesystem::path& second) {
    return ::renameat2(AT_FDCWD, first.c_str(), AT_FDCWD, second.c_str(), RENAME_EXCHANGE) == 0;
}

pid_t startProgram(const std::filesystem::path& bundle) {
    SpawnSetup setup;
    posix_spawnattr_setflags(&setup.attributes, POSIX_SPAWN_SETSID);
    posix_spawn_file_actions_addopen(&setup.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&setup.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&setup.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const std::string program = programIn(bundle).string();
    char* const arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, program.c_str(), &setup.actions, &setup.attributes, arguments,
                    environ) != 0)
        return -1;
    return child;
}

}  // namespace velt::updater
