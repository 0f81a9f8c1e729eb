// Writing the colour profile into a PNG: the iCCP chunk, the zlib stream it carries and the two
// checksums PNG and zlib use. The platform encoder and the PNG optimizers may drop or alter
// colour information, so every PNG candidate gets the plan's profile written in again here.
//
// All functions are reentrant; the engine calls them on its queue.
#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>

namespace velt {

// CRC-32 of PNG and zlib (reflected polynomial 0xEDB88320, initial all ones, final complement),
// computed bit by bit.
std::uint32_t crc32(const QByteArray& data);

// Adler-32: a = 1, b = 0; per byte a = (a + byte) mod 65521, b = (b + a) mod 65521; b × 65536 + a.
std::uint32_t adler32(const QByteArray& data);

// A zlib stream of `input`: 78 9C, raw DEFLATE, Adler-32 big-endian. The raw stream is written
// into a buffer of n + ⌊n / 8⌋ + 128 bytes (at least 128), doubled while it is too small.
// Throws FileSystemError(writeUnknown) once the buffer would exceed 4096 bytes (inputs of at most
// 1024 bytes) or 4 × n (larger inputs).
QByteArray zlibCompressedData(const QByteArray& input);

// The chunk: length, "iCCP", "VELT ICC" 0 0 + zlibCompressedData(profile), CRC of type and data.
QByteArray iccpChunk(const QByteArray& profile);

// The PNG `png` with every iCCP, sRGB, gAMA, cHRM and cICP chunk removed, the iCCP chunk of
// `profile` right after IHDR and nothing after IEND. Nothing when `png` is not a PNG, a chunk runs
// past the end of the data, or there is no IHDR: such a file is left as it is.
std::optional<QByteArray> pngWithICCProfile(const QByteArray& png, const QByteArray& profile);

// Rewrites the PNG file at `path` in place (atomically) with `iccData` as its only colour
// information. An absent or empty profile, a file that is not a PNG or a damaged chunk list
// leaves the file untouched. Throws FileSystemError when the file cannot be read or written.
void attachICCProfileToPNGIfNeeded(const QString& path, const std::optional<QByteArray>& iccData);

// Rewrites the PNG file at `path` in place (atomically) without its metadata chunks (eXIf, tEXt,
// zTXt, iTXt, tIME): an output carries the plan's metadata and nothing of the source's besides.
// A file without any, not a PNG or with a damaged chunk list stays as it is. Throws FileSystemError
// when the file cannot be read or written.
void removeMetadataFromPNG(const QString& path);

}  // namespace velt
