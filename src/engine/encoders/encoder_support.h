// The steps the external-tool encoding paths (JPEG, WebP, PNG) share: hidden temporary names
// beside the destination, the quality clamp, the profile side file, choosing the smallest result
// and copying it to the destination.
//
// Everything here runs on the engine's queue. Failures throw FileSystemError.
#pragma once

#include "engine/core/encoding_context.h"
#include "engine/core/image_plan.h"
#include "engine/encoders/temporary_files.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <functional>
#include <optional>

namespace velt {

// Finds an external tool by name; production code uses toolURL(), tests hand in their own so
// that a tool installed on the machine can be hidden.
using ToolLocator = std::function<std::optional<QString>(const QString& name)>;
ToolLocator systemToolLocator();

// What each result of a path goes through before it may be kept: the caller's last touches (the
// source's metadata) and the one decode that proves the file whole. Throws to drop the result.
using CandidateFinish = std::function<void(const QString& file)>;

// `finish` on `file`; without one, the decode alone (validateEncodedImage at the plan's size).
void finishCandidate(const CandidateFinish& finish, const QString& file, const ImagePlan& plan);

// One run of an encoder: the file it is to write and its exact argument list.
struct EncoderCandidate {
    QString url;
    QStringList arguments;
    bool operator==(const EncoderCandidate&) const = default;
};

// Where intermediates and candidates of `destination` are written: the engine's private scratch
// folder, or beside the destination when there is none.
QString workDirectory(const EncodingContext& context, const QString& destination);

// The destination's folder, and its last path component without the extension
// ("/a/photo.final.jpg" → "/a", "photo.final").
QString directoryOf(const QString& path);
QString baseNameOf(const QString& path);

// directory/"." + base + ".velt-temp" + infix + fresh upper-case UUID + "." + extension, for
// example infix "-jpeg-source-" and extension "ppm"; the base is cut short so that the name, with
// room left for a tool's own temporary suffix, fits in 255 bytes. Nothing is created.
QString temporarySibling(const QString& directory, const QString& base, const QString& infix,
                         const QString& extension);

// A quality setting clamped to 0...100.
int clampedQuality(int setting);

// When `iccData` holds bytes: writes them atomically to a "-profile-" side file in `directory`,
// lists it in `cleanup` and returns its path. Nothing for an absent or empty profile.
std::optional<QString> writeProfileSideFile(const QString& directory, const QString& base,
                                            const std::optional<QByteArray>& iccData,
                                            TemporaryFiles& cleanup);

// The size of the file in bytes. Throws FileSystemError when it cannot be read.
std::int64_t fileSizeOf(const QString& path);

// The first of `files`, replaced by a later one only when that one is strictly smaller.
// REQUIRES: `files` is not empty. Throws the first size read error.
QString smallestFile(const QStringList& files);

// Removes whatever is at `destination` (errors ignored) and moves `winner` there (copies it
// across volumes). Throws the copy's FileSystemError.
void moveOverDestination(const QString& winner, const QString& destination);

}  // namespace velt
