// SerialQueue: one thread with its own event loop on which work runs one item at a time, in
// order. The engine keeps all its per-file state on its queue, so that state needs no lock.
#pragma once

#include <QObject>
#include <QString>
#include <QThread>
#include <functional>
#include <memory>

namespace velt {

class SerialQueue {
  public:
    explicit SerialQueue(const QString& label);
    // Finishes the item now running, drops the rest and joins the thread.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    // Runs `work` on the queue later.
    void post(std::function<void()> work);
    // Runs `work` on the queue and waits for it, after everything posted before it; runs it at
    // once when already on the queue (waiting there would deadlock).
    void sync(const std::function<void()>& work);
    bool isCurrent() const;

    // An object that lives on the queue's thread: the parent and context of its timers.
    QObject* context() const { return context_.get(); }

  private:
    QThread thread_;
    std::unique_ptr<QObject> context_;
};

}  // namespace velt
