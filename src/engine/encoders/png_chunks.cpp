#include "engine/encoders/png_chunks.h"

#include "engine/core/errors.h"
#include "model/atomic_file.h"

#include <zlib.h>
#include <QFile>
#include <array>
#include <cstring>
#include <functional>

namespace velt {
namespace {

constexpr std::array<char, 8> pngSignature = {'\x89', 'P', 'N', 'G', '\r', '\n', '\x1a', '\n'};

void appendBigEndian(QByteArray& out, std::uint32_t value) {
    out.append(static_cast<char>(value >> 24));
    out.append(static_cast<char>(value >> 16));
    out.append(static_cast<char>(value >> 8));
    out.append(static_cast<char>(value));
}

std::uint32_t readBigEndian(const QByteArray& data, qsizetype at) {
    const auto byte = [&](qsizetype index) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(data[at + index]));
    };
    return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

// deflateEnd on every way out of one compression attempt.
class RawDeflater {
  public:
    RawDeflater() {
        ok_ = deflateInit2(&stream_, Z_BEST_COMPRESSION, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) ==
              Z_OK;
    }
    ~RawDeflater() {
        if (ok_) deflateEnd(&stream_);
    }
    RawDeflater(const RawDeflater&) = delete;
    RawDeflater& operator=(const RawDeflater&) = delete;

    // The raw DEFLATE stream of `input` when it fits into `capacity` bytes; empty otherwise.
    QByteArray compress(const QByteArray& input, std::size_t capacity) {
        if (!ok_) return {};
        QByteArray buffer(static_cast<qsizetype>(capacity), '\0');
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input.constData()));
        stream_.avail_in = static_cast<uInt>(input.size());
        stream_.next_out = reinterpret_cast<Bytef*>(buffer.data());
        stream_.avail_out = static_cast<uInt>(capacity);
        if (deflate(&stream_, Z_FINISH) != Z_STREAM_END) return {};
        buffer.truncate(static_cast<qsizetype>(stream_.total_out));
        return buffer;
    }

  private:
    z_stream stream_{};
    bool ok_ = false;
};

bool isColourChunk(const QByteArray& type) {
    return type == "iCCP" || type == "sRGB" || type == "gAMA" || type == "cHRM" || type == "cICP";
}

QByteArray readFileOrThrow(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw FileSystemError(
            FileSystemError::readUnknown,
            QStringLiteral("Cannot read ") + path + QStringLiteral(": ") + file.errorString());
    QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw FileSystemError(
            FileSystemError::readUnknown,
            QStringLiteral("Cannot read ") + path + QStringLiteral(": ") + file.errorString());
    return data;
}

}  // namespace

std::uint32_t crc32(const QByteArray& data) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const char character : data) {
        crc ^= static_cast<unsigned char>(character);
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1u) ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    }
    return ~crc;
}

std::uint32_t adler32(const QByteArray& data) {
    std::uint32_t a = 1;
    std::uint32_t b = 0;
    for (const char character : data) {
        a = (a + static_cast<unsigned char>(character)) % 65521u;
        b = (b + a) % 65521u;
    }
    return b * 65536u + a;
}

QByteArray zlibCompressedData(const QByteArray& input) {
    const std::size_t n = static_cast<std::size_t>(input.size());
    const std::size_t limit = n <= 1024 ? 4096 : 4 * n;
    std::size_t capacity = std::max<std::size_t>(n + n / 8 + 128, 128);
    for (;;) {
        if (capacity > limit)
            throw FileSystemError(FileSystemError::writeUnknown,
                                  QStringLiteral("The colour profile cannot be compressed"),
                                  Message{Text::encodingFailed, {}});
        RawDeflater deflater;
        const QByteArray raw = deflater.compress(input, capacity);
        if (!raw.isEmpty()) {
            QByteArray stream("\x78\x9C", 2);
            stream += raw;
            appendBigEndian(stream, adler32(input));
            return stream;
        }
        capacity *= 2;
    }
}

QByteArray iccpChunk(const QByteArray& profile) {
    QByteArray typeAndData("iCCP");
    typeAndData += QByteArray("VELT ICC\0\0", 10);
    typeAndData += zlibCompressedData(profile);
    QByteArray chunk;
    appendBigEndian(chunk, static_cast<std::uint32_t>(typeAndData.size() - 4));
    chunk += typeAndData;
    appendBigEndian(chunk, crc32(typeAndData));
    return chunk;
}

namespace {

// `png` with only the chunks `keep` accepts (by type) and `afterHeader` right after IHDR, nothing
// after IEND; nothing when `png` is not a PNG, a chunk runs past the end or there is no IHDR.
std::optional<QByteArray> rewrittenPng(const QByteArray& png,
                                       const std::function<bool(const QByteArray&)>& keep,
                                       const QByteArray& afterHeader = {}) {
    if (png.size() < 8 || std::memcmp(png.constData(), pngSignature.data(), 8) != 0)
        return std::nullopt;
    QByteArray output = png.left(8);
    bool sawHeader = false;
    qsizetype position = 8;
    while (position < png.size()) {
        if (png.size() - position < 12) return std::nullopt;
        const std::int64_t span = std::int64_t{readBigEndian(png, position)} + 12;
        if (span > png.size() - position) return std::nullopt;
        const QByteArray type = png.mid(position + 4, 4);
        if (keep(type)) output += png.mid(position, static_cast<qsizetype>(span));
        position += static_cast<qsizetype>(span);
        if (type == "IHDR" && !sawHeader) {
            output += afterHeader;
            sawHeader = true;
        }
        if (type == "IEND") break;
    }
    if (!sawHeader) return std::nullopt;
    return output;
}

// Rewrites the PNG file at `path` atomically as `rewrite` makes it; a file it declines stays.
void rewritePngFile(const QString& path,
                    const std::function<std::optional<QByteArray>(const QByteArray&)>& rewrite) {
    const std::optional<QByteArray> rewritten = rewrite(readFileOrThrow(path));
    if (!rewritten) return;
    QString reason;
    if (!writeFileAtomically(path, *rewritten, &reason))
        throw FileSystemError(FileSystemError::writeUnknown, reason);
}

}  // namespace

std::optional<QByteArray> pngWithICCProfile(const QByteArray& png, const QByteArray& profile) {
    return rewrittenPng(
        png, [](const QByteArray& type) { return !isColourChunk(type); }, iccpChunk(profile));
}

void removeMetadataFromPNG(const QString& path) {
    rewritePngFile(path, [](const QByteArray& png) -> std::optional<QByteArray> {
        bool found = false;
        auto rewritten = rewrittenPng(png, [&](const QByteArray& type) {
            const bool metadata = type == "eXIf" || type == "tEXt" || type == "zTXt" ||
                                  type == "iTXt" || type == "tIME";
            found = found || metadata;
            return !metadata;
        });
        if (!found) return std::nullopt;  // a file without any stays byte for byte
        return rewritten;
    });
}

void attachICCProfileToPNGIfNeeded(const QString& path, const std::optional<QByteArray>& iccData) {
    if (!iccData || iccData->isEmpty()) return;
    rewritePngFile(path, [&](const QByteArray& png) { return pngWithICCProfile(png, *iccData); });
}

}  // namespace velt
