#include "engine/watcher/memory_budget.h"

#include "engine/pipeline/can_write.h"
#include "engine/pipeline/output_naming.h"
#include "imageio/image_io.h"
#include "platform/batch_memory.h"

#include <chrono>
#include <exception>

namespace velt {
namespace {

// Peak memory per pixel of the raster an encode to each format holds, the tool it runs included:
// what `bench/run.sh memory` measured on a 20 MP photo (and 48 MP for JPEG), plus about a tenth.
std::int64_t peakBytesPerPixel(ImageFormat target) {
    switch (target) {
        case ImageFormat::jpeg:
            return 12;  // measured 8.8 (20 MP), 10.9 (48 MP): raster, cjpeg's coefficients
        case ImageFormat::png:
            return 17;  // measured 15.4: raster, libpng's rows, a quantizer on its own copy
        case ImageFormat::webp:
            return 15;  // measured 13.1: raster, cwebp's YUV planes and analysis
        case ImageFormat::heic:
            return 20;  // measured 18.3: libheif's planes and x265's frame data
        case ImageFormat::avif:
            return 26;  // measured 23.2: libheif's planes and aom's frame buffers
    }
    return 26;
}

}  // namespace

MemoryBudget::Reservation MemoryBudget::reserve(std::int64_t bytes,
                                                const std::function<bool()>& cancelled) {
    std::unique_lock lock(mutex_);
    // First come, first served: a large file waiting for room is not overtaken by smaller ones
    // that would keep the room from ever being free.
    const std::uint64_t ticket = nextTicket_++;
    while (ticket != serving_ || (budget_ > 0 && holders_ > 0 && held_ + bytes > budget_)) {
        if (cancelled()) return {};
        released_.wait_for(lock, std::chrono::milliseconds(100));
    }
    ++serving_;
    held_ += bytes;
    ++holders_;
    lock.unlock();
    released_.notify_all();  // the next ticket may fit as well
    return Reservation(this, bytes);
}

void MemoryBudget::release(std::int64_t bytes) {
    {
        const std::lock_guard lock(mutex_);
        held_ -= bytes;
        --holders_;
    }
    released_.notify_all();
}

std::int64_t estimatedEncodeBytes(const AppConfig& config, const QString& file) {
    imageio::ImageProperties properties;
    try {
        properties = imageio::readProperties(file);
    } catch (const std::exception&) {
        return 0;  // the file fails in its own pipeline, which reports why
    }
    // The automatic strategy keeps a writable format; otherwise it may choose AVIF, the most
    // demanding, which is what is reserved for it.
    const ImageFormat automatic =
        canWrite(properties.format) ? properties.format : ImageFormat::avif;
    const ImageFormat target = targetFormat(config.formatStrategy, automatic);
    return static_cast<std::int64_t>(properties.width) * properties.height *
           peakBytesPerPixel(target);
}

std::int64_t batchMemoryBudget() {
    // A margin for everything else the machine runs meanwhile.
    return availableMemoryBytes() / 10 * 8;
}

}  // namespace velt
