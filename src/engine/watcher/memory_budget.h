// MemoryBudget: how many files a batch may encode at once. Before a worker starts a file it
// reserves what the file's encode is estimated to hold at its peak; a reservation that does not
// fit beside those held waits until enough is released. A file that needs more than the whole
// budget runs alone: never refused, since alone is the most the machine can give it.
//
// Thread-safety: every member may be called from any thread.
#pragma once

#include "model/settings.h"

#include <QString>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>

namespace velt {

class MemoryBudget {
  public:
    // A budget of `bytes`; 0 or less: no limit.
    explicit MemoryBudget(std::int64_t bytes) : budget_(bytes) {}

    // Held bytes, given back when it goes.
    class Reservation {
      public:
        Reservation() = default;
        Reservation(MemoryBudget* budget, std::int64_t bytes) : budget_(budget), bytes_(bytes) {}
        ~Reservation() {
            if (budget_) budget_->release(bytes_);
        }
        Reservation(Reservation&& other) noexcept
            : budget_(std::exchange(other.budget_, nullptr)), bytes_(other.bytes_) {}
        Reservation& operator=(Reservation&&) = delete;
        Reservation(const Reservation&) = delete;
        Reservation& operator=(const Reservation&) = delete;

        explicit operator bool() const { return budget_ != nullptr; }

      private:
        MemoryBudget* budget_ = nullptr;
        std::int64_t bytes_ = 0;
    };

    // Waits until every earlier call has been served and `bytes` fit beside what is held (or
    // nothing is held), and holds them; an empty reservation when `cancelled` turns true
    // meanwhile (looked at every 100 ms).
    Reservation reserve(std::int64_t bytes, const std::function<bool()>& cancelled);

  private:
    void release(std::int64_t bytes);

    const std::int64_t budget_;
    std::mutex mutex_;
    std::condition_variable released_;
    std::int64_t held_ = 0;         // guarded by mutex_
    int holders_ = 0;               // guarded by mutex_
    std::uint64_t nextTicket_ = 0;  // guarded by mutex_; the order in which reserve() was called
    std::uint64_t serving_ = 0;     // guarded by mutex_; the ticket whose turn it is
};

// What a batch reserves for `file` encoded under `config`: its pixels, read from the header
// (nothing is decoded), times what an encode to its target format holds per pixel at its peak,
// the tool it starts included. 0 for a file whose header cannot be read: it fails at once.
std::int64_t estimatedEncodeBytes(const AppConfig& config, const QString& file);

// The budget of a batch: most of the memory the system has available now (MemAvailable); 0 (no
// limit) where that cannot be read.
std::int64_t batchMemoryBudget();

}  // namespace velt
