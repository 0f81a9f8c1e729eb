// Lossless PNG encoding with libpng into memory. libpng reports errors by longjmp, so the library
// is driven from one function whose frame holds only trivially destructible objects, and the
// output grows in a malloc'ed buffer rather than a C++ container.
#include "imageio/encoders.h"
#include "imageio/image_io.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include <png.h>

namespace velt::imageio::detail {

namespace {

struct PngJob {
    const std::uint8_t* rgba = nullptr;
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    bool alpha = false;
    png_const_bytep icc = nullptr;
    png_uint_32 iccSize = 0;
    unsigned char* output = nullptr;  // malloc'ed, grown by appendOutput
    std::size_t outputSize = 0;
    std::size_t outputCapacity = 0;
    char message[200] = {};
};

void appendOutput(png_structp png, png_bytep data, png_size_t length) {
    auto* job = static_cast<PngJob*>(png_get_io_ptr(png));
    if (job->outputCapacity - job->outputSize < length) {
        std::size_t capacity = job->outputCapacity == 0 ? 65536 : job->outputCapacity * 2;
        while (capacity - job->outputSize < length) capacity *= 2;
        void* grown = std::realloc(job->output, capacity);
        if (grown == nullptr) png_error(png, "out of memory for the encoded image");
        job->output = static_cast<unsigned char*>(grown);
        job->outputCapacity = capacity;
    }
    std::memcpy(job->output + job->outputSize, data, length);
    job->outputSize += length;
}

void flushNothing(png_structp) {}

[[noreturn]] void failWithMessage(png_structp png, png_const_charp message) {
    auto* job = static_cast<PngJob*>(png_get_error_ptr(png));
    std::strncpy(job->message, message, sizeof job->message - 1);
    png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

void writeRows(png_structp png, const PngJob* job) {
    const std::size_t rowBytes = static_cast<std::size_t>(job->width) * 4;
    for (png_uint_32 y = 0; y < job->height; ++y) {
        png_write_row(png, job->rgba + y * rowBytes);
    }
}

// Returns false with job->message set when libpng fails.
bool compressFenced(PngJob* job) {
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, job, failWithMessage, ignoreWarning);
    if (png == nullptr) return false;
    png_infop info = png_create_info_struct(png);
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, job, appendOutput, flushNothing);
    png_set_IHDR(png, info, job->width, job->height, 8,
                 job->alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (job->iccSize > 0) png_set_iCCP(png, info, "ICC profile", 0, job->icc, job->iccSize);
    png_write_info(png, info);
    // Opaque bitmaps are still stored as RGBA in memory: libpng drops the fourth byte.
    if (!job->alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);
    writeRows(png, job);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

struct FreeDeleter {
    void operator()(unsigned char* memory) const { std::free(memory); }
};

}  // namespace

QByteArray encodePNG(const Bitmap& bitmap, const QByteArray& icc) {
    PngJob job;
    job.rgba = bitmap.rgba.data();
    job.width = static_cast<png_uint_32>(bitmap.width);
    job.height = static_cast<png_uint_32>(bitmap.height);
    job.alpha = hasAlphaChannel(bitmap.alphaInfo);
    job.icc = reinterpret_cast<png_const_bytep>(icc.constData());
    job.iccSize = static_cast<png_uint_32>(icc.size());
    const bool compressed = compressFenced(&job);
    const std::unique_ptr<unsigned char, FreeDeleter> output(job.output);
    if (!compressed) {
        throw ImageIOError(
            ImageIOError::writeFailed,
            QStringLiteral("PNG encoding failed: %1").arg(QString::fromUtf8(job.message)));
    }
    return QByteArray(reinterpret_cast<const char*>(output.get()),
                      static_cast<qsizetype>(job.outputSize));
}

}  // namespace velt::imageio::detail
