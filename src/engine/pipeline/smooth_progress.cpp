#include "engine/pipeline/smooth_progress.h"

#include <algorithm>
#include <cmath>

namespace velt {

using namespace std::chrono_literals;

SmoothProgress::SmoothProgress(CompressionStats stats, int from, int to,
                               std::chrono::duration<double> duration,
                               std::function<void(const CompressionStats&)> report)
    : stats_(std::move(stats)),
      from_(from),
      to_(to),
      duration_(duration),
      report_(std::move(report)),
      thread_([this] { run(); }) {}

SmoothProgress::~SmoothProgress() {
    {
        const std::lock_guard lock(mutex_);
        cancelled_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

int SmoothProgress::valueAt(int from, int to, std::chrono::duration<double> elapsed,
                            std::chrono::duration<double> duration) {
    const double t = elapsed / duration;
    const double r = t < 0 ? 1.0 : 1.0 - std::min(t, 1.0);
    const int value = from + static_cast<int>((1.0 - r * r) * (to - from));
    return std::clamp(value, from, to);
}

void SmoothProgress::run() {
    const auto start = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, 180ms, [this] { return cancelled_; })) {
        CompressionStats tick = stats_;
        tick.progress = valueAt(from_, to_, std::chrono::steady_clock::now() - start, duration_);
        if (report_) report_(tick);
    }
}

double estimatedEncodingSeconds(ImageFormat target, std::int64_t sizeBytes) {
    double base = 1.4;
    double perMegabyte = 1.5;
    switch (target) {
        case ImageFormat::jpeg:
            base = 1.2, perMegabyte = 1.4;
            break;
        case ImageFormat::png:
            base = 1.8, perMegabyte = 1.8;
            break;
        case ImageFormat::webp:
            base = 1.6, perMegabyte = 1.6;
            break;
        case ImageFormat::avif:
        case ImageFormat::heic:
            break;
    }
    const double megabytes = std::max(static_cast<double>(sizeBytes) / 1'000'000.0, 0.25);
    return std::clamp(base + megabytes * perMegabyte, 2.5, 18.0);
}

}  // namespace velt
