#include "model/json_fields.h"

#include "model/file_url.h"

#include <limits>

namespace velt::json {
namespace {

// Nothing for a missing key or a null; the value otherwise.
const nlohmann::json* present(const nlohmann::json& object, const char* key) {
    const auto it = requireObject(object).find(key);
    if (it == object.end() || it->is_null()) return nullptr;
    return &*it;
}

[[noreturn]] void wrongType(const char* key) {
    throw JsonDecodeError(std::string("wrong type for key ") + key);
}

}  // namespace

std::optional<nlohmann::json> parse(const QByteArray& data) {
    auto value = nlohmann::json::parse(data.constBegin(), data.constEnd(), nullptr, false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

const nlohmann::json& requireObject(const nlohmann::json& value) {
    if (!value.is_object()) throw JsonDecodeError("expected a JSON object");
    return value;
}

std::optional<bool> optionalBool(const nlohmann::json& object, const char* key) {
    const auto* value = present(object, key);
    if (!value) return std::nullopt;
    if (!value->is_boolean()) wrongType(key);
    return value->get<bool>();
}

std::optional<QString> optionalString(const nlohmann::json& object, const char* key) {
    const auto* value = present(object, key);
    if (!value) return std::nullopt;
    if (!value->is_string()) wrongType(key);
    return QString::fromStdString(value->get_ref<const std::string&>());
}

std::optional<std::int64_t> optionalInt64(const nlohmann::json& object, const char* key) {
    const auto* value = present(object, key);
    if (!value) return std::nullopt;
    if (value->is_number_unsigned()) {
        const auto number = value->get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            wrongType(key);
        return static_cast<std::int64_t>(number);
    }
    if (!value->is_number_integer()) wrongType(key);
    return value->get<std::int64_t>();
}

std::optional<int> optionalInt(const nlohmann::json& object, const char* key) {
    const auto number = optionalInt64(object, key);
    if (!number) return std::nullopt;
    if (*number < std::numeric_limits<int>::min() || *number > std::numeric_limits<int>::max())
        wrongType(key);
    return static_cast<int>(*number);
}

std::optional<QByteArray> optionalBase64(const nlohmann::json& object, const char* key) {
    const auto text = optionalString(object, key);
    if (!text) return std::nullopt;
    auto decoded =
        QByteArray::fromBase64Encoding(text->toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded) wrongType(key);
    return *decoded;
}

std::optional<QString> optionalFilePath(const nlohmann::json& object, const char* key) {
    const auto text = optionalString(object, key);
    if (!text) return std::nullopt;
    auto path = pathFromFileURLText(*text);
    if (!path) wrongType(key);
    return path;
}

}  // namespace velt::json
