// SmoothProgress: while an encoder runs, the progress shown eases from one percentage towards
// another over the estimated encoding time, so a long encode does not look frozen.
#pragma once

#include "model/history.h"
#include "model/image_format.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace velt {

class SmoothProgress {
  public:
    // Every 0.18 s, on its own thread, reports `stats` with progress = from + ⌊(1 − r²)·(to −
    // from)⌋, r = 1 − min(elapsed / duration, 1): fast at first, never past `to` by itself.
    // REQUIRES: duration > 0.
    SmoothProgress(CompressionStats stats, int from, int to, std::chrono::duration<double> duration,
                   std::function<void(const CompressionStats&)> report);
    // Stops the ticks and joins the thread; no tick is reported after it returns.
    ~SmoothProgress();
    SmoothProgress(const SmoothProgress&) = delete;
    SmoothProgress& operator=(const SmoothProgress&) = delete;

    // The value at `elapsed`, kept within [from, to].
    static int valueAt(int from, int to, std::chrono::duration<double> elapsed,
                       std::chrono::duration<double> duration);

  private:
    void run();

    CompressionStats stats_;
    int from_;
    int to_;
    std::chrono::duration<double> duration_;
    std::function<void(const CompressionStats&)> report_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool cancelled_ = false;  // guarded by mutex_
    std::thread thread_;
};

// Estimated encoding time in seconds for a source of `sizeBytes` written as `target`:
// base + max(size / 1,000,000, 0.25) × per-megabyte, kept within 2.5…18 seconds.
double estimatedEncodingSeconds(ImageFormat target, std::int64_t sizeBytes);

}  // namespace velt
