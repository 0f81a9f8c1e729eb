#include "engine/watcher/serial_queue.h"

namespace velt {

SerialQueue::SerialQueue(const QString& label) : context_(std::make_unique<QObject>()) {
    thread_.setObjectName(label);
    context_->moveToThread(&thread_);
    thread_.start(QThread::LowPriority);
}

SerialQueue::~SerialQueue() {
    // Children (timers) must die on their own thread.
    sync([this] { qDeleteAll(context_->children()); });
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
