#include "engine/core/child_process.h"

#include "engine/core/errors.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

extern char** environ;

namespace velt {
namespace {

using Clock = std::chrono::steady_clock;

// How long a tool gets to end after SIGTERM before it is killed outright.
constexpr auto terminateGracePeriod = std::chrono::milliseconds(300);
// The waiter wakes at least this often to notice a terminate() from another thread.
constexpr auto waitTick = std::chrono::milliseconds(100);
// Without a pidfd the waiter can only sleep and look again.
constexpr auto fallbackSleep = std::chrono::milliseconds(10);

// The exit status, or 128 + signal number like a shell reports it.
int decodeWaitStatus(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return 255;
}

// In the child, between fork and exec: only async-signal-safe calls. Never returns; on failure
// writes errno to `report` (close-on-exec, so a successful exec closes it without a word).
[[noreturn]] void reportAndExit(int report) {
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(report, &error, sizeof error);
    ::_exit(127);
}

[[noreturn]] void becomeTool(char* const argv[], pid_t parent, const ToolLimits& limits, int input,
                             int report) {
    const auto fail = [report] { reportAndExit(report); };
    // The tool dies with the program, even when the program is killed outright.
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) fail();
    if (::getppid() != parent) ::_exit(127);  // the program is already gone
    if (limits.memoryBytes > 0) {
        const rlimit memory = {static_cast<rlim_t>(limits.memoryBytes),
                               static_cast<rlim_t>(limits.memoryBytes)};
        if (::setrlimit(RLIMIT_AS, &memory) != 0) fail();
    }
    // Ignored signals and the blocked mask survive exec; a tool starts with neither, so that
    // SIGTERM from the engine's stop reaches it as it would from a shell.
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) {
        if (signal != SIGKILL && signal != SIGSTOP) ::sigaction(signal, &defaults, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    // The tools' messages are never read: output and errors go to the null device, so a chatty
    // tool can never block on a full pipe. Input is the caller's pipe, or the null device so that
    // a tool never waits for input.
    const int null = ::open("/dev/null", O_RDWR);
    if (null < 0 || ::dup2(input >= 0 ? input : null, STDIN_FILENO) < 0 ||
        ::dup2(null, STDOUT_FILENO) < 0 || ::dup2(null, STDERR_FILENO) < 0)
        fail();
    // No descriptor of ours (watches, half-written files, locks) leaks into a tool; the report
    // pipe closes itself at exec.
    for (int fd = STDERR_FILENO + 1; fd < 1024; ++fd) {
        if (fd != report) ::close(fd);
    }
    ::execve(argv[0], argv, environ);
    reportAndExit(report);
}

// Starts the child with vfork: it borrows this process's memory until its exec, instead of
// fork's copy-on-write marking of every page. After a fork each page the engine writes again
// (the next photo's raster, the decoder's buffers) takes a fault, which cost more CPU than the
// photo's own decode. Every signal is blocked meanwhile so that no handler of ours runs in the
// child on the shared memory; the child resets the handlers and unblocks before its exec.
pid_t spawnSharingMemory(char* const argv[], pid_t parent, const ToolLimits& limits, int input,
                         int report) {
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &previous);
    const pid_t pid = ::vfork();
    if (pid == 0) becomeTool(argv, parent, limits, input, report);
    const int error = errno;
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    errno = error;
    return pid;
}

// A pidfd becomes readable when the child exits, so the waiter can sleep in poll() instead of
// looking again and again. Invalid when the kernel has no pidfd_open (then the waiter sleeps in
// short steps).
class PidFd {
  public:
    explicit PidFd(pid_t pid) {
#ifdef SYS_pidfd_open
        fd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
        (void)pid;
#endif
    }
    ~PidFd() {
        if (fd_ >= 0) ::close(fd_);
    }
    PidFd(const PidFd&) = delete;
    PidFd& operator=(const PidFd&) = delete;

    // Returns when the child may have exited, when `writable` (a pipe, or -1) takes more bytes,
    // or after `timeout`, whichever comes first.
    void waitAtMost(std::chrono::milliseconds timeout, int writable) const {
        if (fd_ < 0 && writable < 0) {
            std::this_thread::sleep_for(std::min(timeout, fallbackSleep));
            return;
        }
        if (fd_ < 0) timeout = std::min(timeout, fallbackSleep);
        // poll() skips an entry whose descriptor is negative.
        pollfd entries[] = {{fd_, POLLIN, 0}, {writable, POLLOUT, 0}};
        // EINTR just means another look at the child, which the caller does anyway.
        ::poll(entries, 2, static_cast<int>(std::max<std::int64_t>(timeout.count(), 1)));
    }

  private:
    int fd_ = -1;
};

std::vector<QByteArray> encodedArgumentVector(const QString& executable,
                                              const QStringList& arguments) {
    std::vector<QByteArray> encoded;
    encoded.reserve(static_cast<std::size_t>(arguments.size()) + 1);
    encoded.push_back(QFile::encodeName(executable));
    for (const QString& argument : arguments) encoded.push_back(QFile::encodeName(argument));
    for (const QByteArray& item : encoded) {
        // A C string cannot carry NUL: the tool would silently see a shorter argument.
        if (item.contains('\0'))
            throw FileSystemError(
                FileSystemError::launchFailed,
                QStringLiteral("Cannot start %1: an argument contains a NUL "
                               "character")
                    .arg(executable),
                Message{Text::encoderNotStarted, {QFileInfo(executable).fileName()}});
    }
    return encoded;
}

void killAndReap(pid_t pid) {
    ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) == -1 && errno == EINTR) {
    }
}

// The child's input pipe: the read end for the child, the write end (non-blocking) for us. Both
// close themselves on exec, so no other tool started meanwhile keeps the pipe open.
class InputPipe {
  public:
    explicit InputPipe(bool wanted) {
        if (!wanted) return;
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            error_ = errno;
            return;
        }
        read_ = ends[0];
        write_ = ends[1];
        if (::fcntl(write_, F_SETFL, O_NONBLOCK) != 0) error_ = errno;
    }
    ~InputPipe() {
        for (const int fd : {read_, write_})
            if (fd >= 0) ::close(fd);
    }
    InputPipe(const InputPipe&) = delete;
    InputPipe& operator=(const InputPipe&) = delete;

    int error() const { return error_; }
    int readEnd() const { return read_; }
    // Once the child has its copy of the read end, ours goes.
    void closeReadEnd() { ::close(std::exchange(read_, -1)); }
    int releaseWriteEnd() { return std::exchange(write_, -1); }

  private:
    int read_ = -1;
    int write_ = -1;
    int error_ = 0;
};

}  // namespace

std::shared_ptr<ChildProcess> ChildProcess::spawn(const QString& executable,
                                                  const QStringList& arguments,
                                                  const ToolLimits& limits, bool inputPipe) {
    std::vector<QByteArray> encoded = encodedArgumentVector(executable, arguments);
    std::vector<char*> argv;
    argv.reserve(encoded.size() + 1);
    for (QByteArray& item : encoded) argv.push_back(item.data());
    argv.push_back(nullptr);

    const auto launchFailed = [&](int error) {
        return FileSystemError(
            FileSystemError::launchFailed,
            QStringLiteral("Cannot start %1: %2")
                .arg(executable, QString::fromUtf8(::strerrordesc_np(error))),
            Message{Text::encoderNotStarted, {QFileInfo(executable).fileName()}});
    };
    InputPipe input(inputPipe);
    if (input.error() != 0) throw launchFailed(input.error());
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0) throw launchFailed(errno);
    const pid_t parent = ::getpid();
    const pid_t pid = spawnSharingMemory(argv.data(), parent, limits, input.readEnd(), report[1]);
    ::close(report[1]);
    if (pid < 0) {
        const int error = errno;
        ::close(report[0]);
        throw launchFailed(error);
    }
    if (inputPipe) input.closeReadEnd();
    // The exec closed the pipe (success) or the child wrote why it could not start.
    int childError = 0;
    ssize_t got;
    do {
        got = ::read(report[0], &childError, sizeof childError);
    } while (got < 0 && errno == EINTR);
    ::close(report[0]);
    if (got == sizeof childError) {
        killAndReap(pid);
        throw launchFailed(childError);
    }
    try {
        return std::shared_ptr<ChildProcess>(
            new ChildProcess(pid, limits.time, input.releaseWriteEnd()));
    } catch (...) {
        killAndReap(pid);
        throw;
    }
}

ChildProcess::ChildProcess(pid_t pid, std::chrono::seconds timeLimit, int inputPipe)
    : pid_(pid), inputPipe_(inputPipe), startedAt_(Clock::now()), timeLimit_(timeLimit) {}

bool ChildProcess::timedOut() const {
    const std::lock_guard lock(mutex_);
    return timedOut_;
}

ChildProcess::~ChildProcess() {
    const std::lock_guard lock(mutex_);
    if (!reaped_) killAndReap(pid_);
    reaped_ = true;
}

bool ChildProcess::reapIfExitedLocked() {
    if (reaped_) return true;
    int status = 0;
    pid_t result;
    do {
        result = ::waitpid(pid_, &status, WNOHANG);
    } while (result == -1 && errno == EINTR);
    if (result == 0) return false;
    reaped_ = true;
    // ECHILD: someone else reaped it (SIGCHLD ignored process-wide); its status is lost, and a
    // tool whose success cannot be confirmed counts as failed.
    exitStatus_ = result == pid_ ? decodeWaitStatus(status) : 255;
    return true;
}

int ChildProcess::waitForExit(const InputChunks& input) {
    const PidFd pidfd(pid_);
    InputFeed feed(inputPipe_.release(), input);
    std::optional<Clock::time_point> killAt;
    bool killed = false;
    for (;;) {
        auto timeout = waitTick;
        {
            const std::lock_guard lock(mutex_);
            if (reapIfExitedLocked()) return exitStatus_;
            if (timeLimit_.count() > 0 && !terminateRequested_ &&
                Clock::now() - startedAt_ >= timeLimit_) {
                timedOut_ = true;
                terminateRequested_ = true;
                terminateRequestedAt_ = Clock::now();
                ::kill(pid_, SIGTERM);
            }
            if (terminateRequested_ && !killAt) {
                killAt = terminateRequestedAt_ + terminateGracePeriod;
                // A child being ended gets no more input: one that does not read cannot block us.
                feed.stop();
            }
            if (killAt && !killed) {
                const auto now = Clock::now();
                if (now >= *killAt) {
                    // Still there after the grace period: it ignores SIGTERM, end it for good.
                    ::kill(pid_, SIGKILL);
                    killed = true;
                } else {
                    timeout = std::min(timeout,
                                       std::chrono::ceil<std::chrono::milliseconds>(*killAt - now));
                }
            }
        }
        // Never wait under the lock: terminate() from the stopping thread needs it.
        pidfd.waitAtMost(timeout, feed.fd());
        if (feed.fd() >= 0) feed.pump();
    }
}

void ChildProcess::terminate() {
    const std::lock_guard lock(mutex_);
    // Once reaped the pid may belong to an unrelated process.
    if (reaped_) return;
    if (!terminateRequested_) {
        terminateRequested_ = true;
        terminateRequestedAt_ = Clock::now();
    }
    ::kill(pid_, SIGTERM);
}

bool ChildProcess::isRunning() const {
    const std::lock_guard lock(mutex_);
    if (reaped_) return false;
    // WNOWAIT looks without reaping, so waitForExit() still collects the status.
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return false;
    return info.si_pid == 0;
}

}  // namespace velt
