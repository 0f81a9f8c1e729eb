#include "engine/watcher/serial_queue.h"

#include <openssl/crypto.h>

namespace velt {

SerialQueue::SerialQueue(const QString& label) : context_(std::make_unique<QObject>()) {
    thread_.setObjectName(label);
    context_->moveToThread(&thread_);
    thread_.start(QThread::LowPriority);
}

SerialQueue::~SerialQueue() {
    // Children (timers) must die on their own thread; so must libcrypto's state of the thread
    // (the digests run here), which it would otherwise only drop after the process's own exit
    // clean-up has run, and a leak checker sees lost.
    sync([this] {
        qDeleteAll(context_->children());
        OPENSSL_thread_stop();
    });
    thread_.quit();
    thread_.wait();
}

void SerialQueue::post(std::function<void()> work) {
    QMetaObject::invokeMethod(context_.get(), std::move(work), Qt::QueuedConnection);
}

void SerialQueue::sync(const std::function<void()>& work) {
    if (isCurrent()) {
        work();
        return;
    }
    QMetaObject::invokeMethod(context_.get(), work, Qt::BlockingQueuedConnection);
}

bool SerialQueue::isCurrent() const {
    return QThread::currentThread() == &thread_;
}

}  // namespace velt
