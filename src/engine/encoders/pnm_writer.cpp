#include "engine/encoders/pnm_writer.h"

#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "model/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>
#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace velt {
namespace {

FileSystemError writeError(int errorNumber, const QString& operation, const QString& path) {
    FileSystemError error = FileSystemError::fromErrno(errorNumber, operation, path);
    if (error.code() == FileSystemError::readUnknown)
        return FileSystemError(FileSystemError::writeUnknown, error.description(), error.reason());
    return error;
}

void writeAll(const FileDescriptor& file, const std::uint8_t* data, std::size_t size,
              const QString& path) {
    while (size > 0) {
        const ssize_t written = ::write(file.get(), data, size);
        if (written < 0) {
            if (errno == EINTR) continue;
            throw writeError(errno, QStringLiteral("Cannot write"), path);
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

// The colour a premultiplied context holds for straight colour c at alpha a, after drawing onto
// opaque white.
inline std::uint8_t overWhite(unsigned c, unsigned a) {
    return static_cast<std::uint8_t>((c * a + 255 * (255 - a) + 127) / 255);
}

// Straight colour → premultiplied (as the context stores it) → straight again, rounded.
inline std::uint8_t throughPremultiplied(unsigned c, unsigned a) {
    if (a == 255) return static_cast<std::uint8_t>(c);
    if (a == 0) return 0;
    const unsigned premultiplied = (c * a + 127) / 255;
    return static_cast<std::uint8_t>(std::min(255u, (premultiplied * 255 + a / 2) / a));
}

// Each pixel is copied as four bytes, the fourth overwritten by the next pixel (`out` has one
// spare byte after the row), while the alphas are gathered. An opaque row (every row of a decoded
// JPEG) is then done: flattening changes nothing there. A row with transparency is flattened onto
// white.
void buildPPMRow(const std::uint8_t* source, int width, std::uint8_t* out) {
    unsigned alphas = 255;
    for (int x = 0; x < width; ++x) {
        std::memcpy(out + x * 3, source + x * 4, 4);
        alphas &= source[x * 4 + 3];
    }
    if (alphas != 255) {
        for (int x = 0; x < width; ++x, source += 4)
            for (int channel = 0; channel < 3; ++channel)
                out[x * 3 + channel] = overWhite(source[channel], source[3]);
    }
}

void buildPAMRow(const std::uint8_t* source, int width, std::uint8_t* out) {
    for (int x = 0; x < width; ++x, source += 4) {
        const unsigned a = source[3];
        for (int channel = 0; channel < 3; ++channel)
            *out++ = throughPremultiplied(source[channel], a);
        *out++ = static_cast<std::uint8_t>(a);
    }
}

std::size_t rowLength(const imageio::Bitmap& image, bool preserveAlpha) {
    return static_cast<std::size_t>(image.width) * (preserveAlpha ? 4 : 3);
}

// Row `y` of the PNM into `out`: rowLength() bytes, and one spare byte after them.
void renderRow(const imageio::Bitmap& image, int y, bool preserveAlpha, std::uint8_t* out) {
    if (preserveAlpha)
        buildPAMRow(image.pixel(0, y), image.width, out);
    else
        buildPPMRow(image.pixel(0, y), image.width, out);
}

// About this many bytes of rows go into one piece of a child's input: few system calls, and a
// buffer far smaller than the raster.
constexpr std::size_t inputPieceBytes = 256 * 1024;

FileDescriptor createEmptyFile(const QString& destination) {
    const QByteArray encoded = QFile::encodeName(destination);
    ::unlink(encoded.constData());  // whatever was there; a failure shows up at the open
    const int descriptor =
        ::open(encoded.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (descriptor < 0)
        throw FileSystemError(
            FileSystemError::writeUnknown,
            QStringLiteral("Cannot create the intermediate image ") + destination);
    return FileDescriptor(descriptor);
}

}  // namespace

void checkRenderable(const imageio::Bitmap& image) {
    const std::int64_t byteCount = validatedDecodedRasterByteCount(image.width, image.height);
    if (image.rgba.size() < static_cast<std::size_t>(byteCount))
        throw FileSystemError(FileSystemError::writeUnknown,
                              QStringLiteral("The image's pixels do not match its size"),
                              Message{Text::encodingFailed, {}});
}

QByteArray pnmHeader(int width, int height, bool preserveAlpha) {
    const QByteArray w = QByteArray::number(width);
    const QByteArray h = QByteArray::number(height);
    if (!preserveAlpha) return "P6\n" + w + ' ' + h + "\n255\n";
    return "P7\nWIDTH " + w + "\nHEIGHT " + h +
           "\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
}

void writePNMImage(EngineLifecycle& lifecycle, const QString& destination,
                   const imageio::Bitmap& image, bool preserveAlpha,
                   const imageio::ColorSpace& /*colorSpace*/, const PNMRowObserver& afterRow) {
    checkRenderable(image);
    const FileDescriptor file = createEmptyFile(destination);
    const QByteArray header = pnmHeader(image.width, image.height, preserveAlpha);
    writeAll(file, reinterpret_cast<const std::uint8_t*>(header.constData()),
             static_cast<std::size_t>(header.size()), destination);

    const std::size_t length = rowLength(image, preserveAlpha);
    std::vector<std::uint8_t> row(length + 1);
    for (int y = 0; y < image.height; ++y) {
        lifecycle.checkpoint();
        renderRow(image, y, preserveAlpha, row.data());
        writeAll(file, row.data(), length, destination);
        if (afterRow) afterRow(y + 1);
    }
    // No fsync: an intermediate lives for one encode and is never installed.
}

InputChunks pnmChunks(const imageio::Bitmap& image, bool preserveAlpha) {
    checkRenderable(image);
    struct Stream {
        QByteArray header;
        int nextRow = -1;  // -1: the header comes first
        std::vector<std::uint8_t> buffer;
    };
    auto stream = std::make_shared<Stream>();
    stream->header = pnmHeader(image.width, image.height, preserveAlpha);
    return [stream, &image, preserveAlpha]() -> std::span<const std::uint8_t> {
        Stream& s = *stream;
        if (s.nextRow < 0) {
            s.nextRow = 0;
            return {reinterpret_cast<const std::uint8_t*>(s.header.constData()),
                    static_cast<std::size_t>(s.header.size())};
        }
        const std::size_t length = rowLength(image, preserveAlpha);
        const int rows = std::min(image.height - s.nextRow,
                                  static_cast<int>(std::max<std::size_t>(
                                      1, inputPieceBytes / std::max<std::size_t>(length, 1))));
        s.buffer.resize(static_cast<std::size_t>(rows) * length + 1);
        for (int i = 0; i < rows; ++i)
            renderRow(image, s.nextRow + i, preserveAlpha, s.buffer.data() + i * length);
        s.nextRow += rows;
        return {s.buffer.data(), static_cast<std::size_t>(rows) * length};
    };
}

}  // namespace velt
