// Strict readers for fields of a decoded JSON object, shared by every persisted file.
// A missing key or a null gives nothing; a value of the wrong type throws JsonDecodeError,
// which the file's decoder turns into "use the defaults".
#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

namespace velt::json {

struct JsonDecodeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Parses without throwing; nothing when the text is not JSON.
std::optional<nlohmann::json> parse(const QByteArray& data);

// REQUIRES: `object` is a JSON object (checked: otherwise JsonDecodeError).
const nlohmann::json& requireObject(const nlohmann::json& value);

std::optional<bool> optionalBool(const nlohmann::json& object, const char* key);
std::optional<QString> optionalString(const nlohmann::json& object, const char* key);
// Whole numbers only, within the signed 64-bit range.
std::optional<std::int64_t> optionalInt64(const nlohmann::json& object, const char* key);
// An int; out-of-range values throw.
std::optional<int> optionalInt(const nlohmann::json& object, const char* key);
// Standard base64 text.
std::optional<QByteArray> optionalBase64(const nlohmann::json& object, const char* key);
// A file URL text (see file_url.h), as an absolute path.
std::optional<QString> optionalFilePath(const nlohmann::json& object, const char* key);

template <typename T>
T required(std::optional<T> value, const char* key) {
    if (!value) throw JsonDecodeError(std::string("missing key ") + key);
    return std::move(*value);
}

inline std::string toStd(const QString& text) {
    return text.toStdString();
}

}  // namespace velt::json
