#include "engine/install/output_marker.h"

#include <sys/xattr.h>
#include <QFile>
#include <nlohmann/json.hpp>

namespace velt {
namespace {

constexpr const char* attributeName = "user.velt-compressor";
// Far larger than any marker we write; a longer value is not ours.
constexpr std::size_t maximumMarkerBytes = 4096;

std::string toStd(const QString& text) {
    return text.toStdString();
}

}  // namespace

bool writeOutputMarker(const QString& path, const OutputMarker& marker) {
    const nlohmann::json object = {
        {"v", 1},
        {"settingsKey", toStd(marker.settingsKey)},
        {"source", toStd(marker.source)},
        {"sourceDigest", marker.sourceDigest.toHex().toStdString()},
        {"size", marker.output.size},
        {"headHash", marker.output.headHash},
        {"tailHash", marker.output.tailHash},
    };
    const std::string value = object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return ::setxattr(QFile::encodeName(path).constData(), attributeName, value.data(),
                      value.size(), 0) == 0;
}

std::optional<OutputMarker> readOutputMarker(const QString& path) {
    char buffer[maximumMarkerBytes];
    // A link's target is not the file at this name: the link itself is read (it holds none).
    const ssize_t length =
        ::lgetxattr(QFile::encodeName(path).constData(), attributeName, buffer, sizeof buffer);
    if (length <= 0) return std::nullopt;
    OutputMarker marker;
    try {
        const auto object = nlohmann::json::parse(buffer, buffer + length);
        if (object.at("v").get<int>() != 1) return std::nullopt;
        marker.settingsKey = QString::fromStdString(object.at("settingsKey").get<std::string>());
        marker.source = QString::fromStdString(object.at("source").get<std::string>());
        marker.sourceDigest = QByteArray::fromHex(
            QByteArray::fromStdString(object.at("sourceDigest").get<std::string>()));
        marker.output.size = object.at("size").get<std::int64_t>();
        marker.output.headHash = object.at("headHash").get<std::uint64_t>();
        marker.output.tailHash = object.at("tailHash").get<std::uint64_t>();
    } catch (const std::exception&) {
        return std::nullopt;
    }
    if (contentFingerprint(path) != marker.output) return std::nullopt;
    return marker;
}

}  // namespace velt
