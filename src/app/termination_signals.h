// SIGINT, SIGTERM and SIGHUP turned into a call on the main thread's event loop (the self-pipe
// trick: the handler only writes one byte, which a QSocketNotifier reads).
//
// One instance at a time; construct and destroy on the main thread.
#pragma once

#include <QObject>
#include <functional>
#include <memory>

class QSocketNotifier;

namespace velt {

class TerminationSignals {
  public:
    // `onSignal` receives the signal number on the main thread.
    explicit TerminationSignals(std::function<void(int)> onSignal);
    // Restores the previous handlers and closes the pipe.
    ~TerminationSignals();
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

    // False when the pipe or the handlers could not be set up (the defaults then apply).
    bool installed() const { return installed_; }

  private:
    void drain();

    std::function<void(int)> onSignal_;
    int readFd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
    bool installed_ = false;
};

}  // namespace velt
