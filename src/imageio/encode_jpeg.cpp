// JPEG encoding with libjpeg-turbo into memory. libjpeg reports errors by longjmp, so the library
// is driven from one function whose frame holds only trivially destructible objects.
#include "imageio/encoders.h"
#include "imageio/image_io.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>

// jpeglib.h expects size_t and FILE to be declared first.
#include <jpeglib.h>

namespace velt::imageio::detail {

namespace {

// Everything the fenced function reads and writes; plain data, so a longjmp loses nothing.
struct JpegJob {
    const std::uint8_t* rgba = nullptr;
    JDIMENSION width = 0;
    JDIMENSION height = 0;
    int quality = 0;
    const JOCTET* icc = nullptr;
    unsigned int iccSize = 0;
    unsigned char* output = nullptr;  // malloc'ed by libjpeg's memory destination
    unsigned long outputSize = 0;
    char message[JMSG_LENGTH_MAX] = {};
};

struct JpegErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf jump;
};

[[noreturn]] void exitOnError(j_common_ptr info) {
    std::longjmp(reinterpret_cast<JpegErrorManager*>(info->err)->jump, 1);
}

void discardMessage(j_common_ptr) {}

void setUpFor420(jpeg_compress_struct* info) {
    info->comp_info[0].h_samp_factor = 2;
    info->comp_info[0].v_samp_factor = 2;
    for (int component = 1; component < 3; ++component) {
        info->comp_info[component].h_samp_factor = 1;
        info->comp_info[component].v_samp_factor = 1;
    }
}

void compressRows(jpeg_compress_struct* info, const JpegJob* job) {
    const std::size_t rowBytes = static_cast<std::size_t>(job->width) * 4;
    while (info->next_scanline < info->image_height) {
        // libjpeg's row type is not const; it only reads the rows it is given.
        JSAMPROW row = const_cast<JSAMPLE*>(job->rgba + info->next_scanline * rowBytes);
        jpeg_write_scanlines(info, &row, 1);
    }
}

// Returns false with job->message set when libjpeg fails. No C++ object with a destructor may
// live in this frame: longjmp would skip it.
bool compressFenced(JpegJob* job) {
    jpeg_compress_struct info;
    JpegErrorManager errors;
    info.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = exitOnError;
    errors.base.output_message = discardMessage;
    if (setjmp(errors.jump)) {
        errors.base.format_message(reinterpret_cast<j_common_ptr>(&info), job->message);
        jpeg_destroy_compress(&info);
        return false;
    }
    jpeg_create_compress(&info);
    jpeg_mem_dest(&info, &job->output, &job->outputSize);
    info.image_width = job->width;
    info.image_height = job->height;
    // libjpeg-turbo reads RGBA rows directly and skips the fourth byte.
    info.input_components = 4;
    info.in_color_space = JCS_EXT_RGBX;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, job->quality, TRUE);
    info.optimize_coding = TRUE;
    setUpFor420(&info);
    jpeg_start_compress(&info, TRUE);
    if (job->iccSize > 0) jpeg_write_icc_profile(&info, job->icc, job->iccSize);
    compressRows(&info, job);
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return true;
}

struct FreeDeleter {
    void operator()(unsigned char* memory) const { std::free(memory); }
};

}  // namespace

QByteArray encodeJPEG(const Bitmap& bitmap, int quality, const QByteArray& icc) {
    JpegJob job;
    job.rgba = bitmap.rgba.data();
    job.width = static_cast<JDIMENSION>(bitmap.width);
    job.height = static_cast<JDIMENSION>(bitmap.height);
    job.quality = std::clamp(quality, 0, 100);
    job.icc = reinterpret_cast<const JOCTET*>(icc.constData());
    job.iccSize = static_cast<unsigned int>(icc.size());
    const bool compressed = compressFenced(&job);
    const std::unique_ptr<unsigned char, FreeDeleter> output(job.output);
    if (!compressed) {
        throw ImageIOError(
            ImageIOError::writeFailed,
            QStringLiteral("JPEG encoding failed: %1").arg(QString::fromLocal8Bit(job.message)));
    }
    return QByteArray(reinterpret_cast<const char*>(output.get()),
                      static_cast<qsizetype>(job.outputSize));
}

}  // namespace velt::imageio::detail
