#include "engine/core/child_input.h"

#include <pthread.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace velt {
namespace {

// A write into a pipe whose reader is gone raises SIGPIPE in the writing thread, which would end
// the whole program. While this guard lives the thread holds SIGPIPE blocked; one raised
// meanwhile is taken back before the previous mask returns, so it is never delivered. (The
// signal is ours to take only when it was not already pending before.)
class SigpipeHeld {
  public:
    SigpipeHeld() {
        sigemptyset(&sigpipe_);
        sigaddset(&sigpipe_, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &sigpipe_, &previous_);
        sigset_t pending;
        alreadyPending_ = ::sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    }
    ~SigpipeHeld() {
        sigset_t pending;
        if (!alreadyPending_ && ::sigpending(&pending) == 0 &&
            sigismember(&pending, SIGPIPE) == 1) {
            const timespec now{0, 0};
            ::sigtimedwait(&sigpipe_, nullptr, &now);
        }
        ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    SigpipeHeld(const SigpipeHeld&) = delete;
    SigpipeHeld& operator=(const SigpipeHeld&) = delete;

  private:
    sigset_t sigpipe_;
    sigset_t previous_;
    bool alreadyPending_ = false;
};

}  // namespace

InputFeed::InputFeed(int pipe, const InputChunks& input) : pipe_(pipe), input_(input) {
    if (!input_) stop();
}

void InputFeed::pump() {
    const SigpipeHeld held;
    while (pipe_.get() >= 0) {
        if (pending_.empty()) {
            pending_ = input_();
            if (pending_.empty()) {
                stop();
                return;
            }
        }
        const ssize_t written = ::write(pipe_.get(), pending_.data(), pending_.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) return;  // full: the child reads on
            stop();  // EPIPE: the child reads no more; its exit status says why
            return;
        }
        pending_ = pending_.subspan(static_cast<std::size_t>(written));
    }
}

void InputFeed::stop() {
    const int fd = pipe_.release();
    if (fd >= 0) ::close(fd);
    pending_ = {};
}

}  // namespace velt
