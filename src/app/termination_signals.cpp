#include "app/termination_signals.h"

#include <fcntl.h>
#include <unistd.h>
#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <iterator>

namespace velt {
namespace {

volatile sig_atomic_t signalWriteFd = -1;
// Closing the terminal (SIGHUP) ends the program as cleanly as Ctrl+C and SIGTERM.
constexpr int handledSignals[] = {SIGINT, SIGTERM, SIGHUP};
struct sigaction previous[std::size(handledSignals)];

extern "C" void forwardSignal(int signal) {
    const int savedErrno = errno;
    const unsigned char byte = static_cast<unsigned char>(signal);
    // A full pipe already holds a pending wake-up; losing this byte changes nothing.
    [[maybe_unused]] const ssize_t written = ::write(signalWriteFd, &byte, 1);
    errno = savedErrno;
}

}  // namespace

TerminationSignals::TerminationSignals(std::function<void(int)> onSignal)
    : onSignal_(std::move(onSignal)) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return;
    readFd_ = fds[0];
    signalWriteFd = fds[1];
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < std::size(handledSignals); ++i) {
        if (::sigaction(handledSignals[i], &action, &previous[i]) != 0) return;
    }
    notifier_ = std::make_unique<QSocketNotifier>(readFd_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                     [this] { drain(); });
    installed_ = true;
}

TerminationSignals::~TerminationSignals() {
    // Handlers set before a failure are restored too (the saved ones start as the defaults).
    if (readFd_ >= 0) {
        for (std::size_t i = 0; i < std::size(handledSignals); ++i)
            ::sigaction(handledSignals[i], &previous[i], nullptr);
    }
    notifier_.reset();
    if (readFd_ >= 0) ::close(readFd_);
    if (signalWriteFd >= 0) ::close(signalWriteFd);
    signalWriteFd = -1;
}

void TerminationSignals::drain() {
    unsigned char byte = 0;
    int last = 0;
    while (::read(readFd_, &byte, 1) == 1) last = byte;
    if (last != 0 && onSignal_) onSignal_(last);
}

}  // namespace velt
