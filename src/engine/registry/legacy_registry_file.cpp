#include "engine/registry/legacy_registry_file.h"

#include "model/json_fields.h"

#include <cmath>
#include <vector>

namespace velt {
namespace {

using Clock = std::chrono::system_clock;

// Dates are stored as seconds since 2001-01-01 00:00:00 UTC, the reference date of the date
// form this file has always used.
constexpr Clock::time_point referenceDate{std::chrono::seconds{978'307'200}};

// Beyond this many seconds from the reference date a nanosecond time_point would overflow; such
// a value is not a date this program wrote.
constexpr double maximumDateOffsetSeconds = 8e9;

// A double near today's dates carries about 0.12 µs of precision, so rounding to the nearest
// microsecond gives back every microsecond-aligned date exactly and any other within 1 µs.
Clock::time_point decodeDate(double seconds) {
    if (!std::isfinite(seconds) || std::abs(seconds) > maximumDateOffsetSeconds)
        throw json::JsonDecodeError("date out of range");
    const auto offset =
        std::chrono::round<std::chrono::microseconds>(std::chrono::duration<double>(seconds));
    return referenceDate + std::chrono::duration_cast<Clock::duration>(offset);
}

const nlohmann::json& requiredMember(const nlohmann::json& object, const char* key) {
    const auto it = json::requireObject(object).find(key);
    if (it == object.end() || it->is_null())
        throw json::JsonDecodeError(std::string("missing key ") + key);
    return *it;
}

// Hashes span the whole unsigned 64-bit range: only a non-negative whole number fits.
std::uint64_t requiredHash(const nlohmann::json& object, const char* key) {
    const auto& value = requiredMember(object, key);
    if (!value.is_number_unsigned())
        throw json::JsonDecodeError(std::string("wrong type for key ") + key);
    return value.get<std::uint64_t>();
}

ContentFingerprint decodeFingerprint(const nlohmann::json& object) {
    ContentFingerprint fingerprint;
    fingerprint.size = json::required(json::optionalInt64(object, "size"), "size");
    fingerprint.headHash = requiredHash(object, "headHash");
    fingerprint.tailHash = requiredHash(object, "tailHash");
    return fingerprint;
}

struct LegacyRecord {
    ProcessedFileRecord record;
    std::optional<QString> source;  // for an output: the source it was written for
};

LegacyRecord decodeRecord(const nlohmann::json& object) {
    LegacyRecord legacy;
    ProcessedFileRecord& record = legacy.record;
    record.fingerprint = decodeFingerprint(requiredMember(object, "fingerprint"));
    const auto decision = processedDecisionFromRawValue(
        json::required(json::optionalString(object, "decision"), "decision"));
    if (!decision) throw json::JsonDecodeError("unknown decision");
    record.decision = *decision;
    const auto& updatedAt = requiredMember(object, "updatedAt");
    if (!updatedAt.is_number()) throw json::JsonDecodeError("wrong type for key updatedAt");
    record.updatedAt = decodeDate(updatedAt.get<double>());
    record.resourceIdentifier = json::optionalString(object, "resourceIdentifier");
    record.settingsKey = json::optionalString(object, "settingsKey");
    legacy.source = json::optionalString(object, "source");
    record.output = json::optionalString(object, "output");
    return legacy;
}

}  // namespace

std::optional<std::map<QString, ProcessedFileRecord>> decodeLegacyRegistry(const QByteArray& data) {
    const auto parsed = json::parse(data);
    if (!parsed) return std::nullopt;
    std::vector<std::pair<QString, LegacyRecord>> legacy;
    try {
        json::required(json::optionalInt(*parsed, "version"), "version");
        const auto& entries = json::requireObject(requiredMember(*parsed, "entries"));
        for (const auto& [path, record] : entries.items())
            legacy.emplace_back(QString::fromStdString(path), decodeRecord(record));
    } catch (const std::exception&) {
        return std::nullopt;
    }
    std::map<QString, ProcessedFileRecord> rows;
    for (const auto& [path, entry] : legacy)
        if (!entry.source || *entry.source == path) rows[path] = entry.record;
    // An output's record joins its source's; a source converted away keeps no content of its
    // own (an empty fingerprint matches no file).
    for (const auto& [path, entry] : legacy) {
        if (!entry.source || *entry.source == path) continue;
        auto [row, added] = rows.try_emplace(*entry.source, entry.record);
        if (added) row->second.fingerprint = {};
        row->second.output = path;
        row->second.outputFingerprint = entry.record.fingerprint;
    }
    return rows;
}

}  // namespace velt
