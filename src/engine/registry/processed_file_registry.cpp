#include "engine/registry/processed_file_registry.h"

#include "model/atomic_file.h"
#include "model/json_fields.h"
#include "model/native_log.h"
#include "model/paths.h"

#include <QStringList>
#include <algorithm>
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

double encodeDate(Clock::time_point date) {
    return std::chrono::duration<double>(date - referenceDate).count();
}

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

ProcessedFileRecord decodeRecord(const nlohmann::json& object) {
    ProcessedFileRecord record;
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
    record.source = json::optionalString(object, "source");
    record.output = json::optionalString(object, "output");
    return record;
}

nlohmann::json encodeRecord(const ProcessedFileRecord& record) {
    using json::toStd;
    nlohmann::json object;
    object["fingerprint"] = {{"size", record.fingerprint.size},
                             {"headHash", record.fingerprint.headHash},
                             {"tailHash", record.fingerprint.tailHash}};
    object["decision"] = toStd(rawValue(record.decision));
    object["updatedAt"] = encodeDate(record.updatedAt);
    if (record.resourceIdentifier) object["resourceIdentifier"] = toStd(*record.resourceIdentifier);
    if (record.settingsKey) object["settingsKey"] = toStd(*record.settingsKey);
    if (record.source) object["source"] = toStd(*record.source);
    if (record.output) object["output"] = toStd(*record.output);
    return object;
}

}  // namespace

QString rawValue(ProcessedDecision decision) {
    switch (decision) {
        case ProcessedDecision::compressed:
            return QStringLiteral("compressed");
        case ProcessedDecision::alreadyOptimal:
            return QStringLiteral("alreadyOptimal");
        case ProcessedDecision::existingOutputFresh:
            return QStringLiteral("existingOutputFresh");
        case ProcessedDecision::leftAnimated:
            return QStringLiteral("leftAnimated");
    }
    return {};
}

std::optional<ProcessedDecision> processedDecisionFromRawValue(const QString& raw) {
    for (auto decision :
         {ProcessedDecision::compressed, ProcessedDecision::alreadyOptimal,
          ProcessedDecision::existingOutputFresh, ProcessedDecision::leftAnimated}) {
        if (rawValue(decision) == raw) return decision;
    }
    return std::nullopt;
}

void ProcessedFileRegistry::pruneIfNeeded() {
    if (entries.size() <= registryLimit) return;
    using Entry = std::pair<QString, ProcessedFileRecord>;
    std::vector<Entry> ordered(entries.begin(), entries.end());
    std::stable_sort(ordered.begin(), ordered.end(), [](const Entry& a, const Entry& b) {
        return a.second.updatedAt > b.second.updatedAt;
    });
    ordered.resize(registryLimit);
    entries = std::map<QString, ProcessedFileRecord>(std::make_move_iterator(ordered.begin()),
                                                     std::make_move_iterator(ordered.end()));
}

bool ProcessedFileRegistry::matches(const QString& path, const ContentFingerprint& fingerprint,
                                    const std::optional<QString>& resourceIdentifier,
                                    const QString& settingsKey) const {
    const auto it = entries.find(path);
    if (it == entries.end()) return false;
    const ProcessedFileRecord& record = it->second;
    return record.fingerprint == fingerprint && record.resourceIdentifier == resourceIdentifier &&
           record.settingsKey == settingsKey;
}

QByteArray ProcessedFileRegistry::encode() const {
    // nlohmann::json keeps object keys sorted, which is the order the file is written in.
    nlohmann::json root;
    root["version"] = version;
    root["entries"] = nlohmann::json::object();
    for (const auto& [path, record] : entries)
        root["entries"][json::toStd(path)] = encodeRecord(record);
    return QByteArray::fromStdString(
        root.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

std::optional<ProcessedFileRegistry> ProcessedFileRegistry::decode(const QByteArray& data) {
    const auto parsed = json::parse(data);
    if (!parsed) return std::nullopt;
    try {
        ProcessedFileRegistry registry;
        registry.version = json::required(json::optionalInt(*parsed, "version"), "version");
        const auto& entries = json::requireObject(requiredMember(*parsed, "entries"));
        for (const auto& [path, record] : entries.items())
            registry.entries.emplace(QString::fromStdString(path), decodeRecord(record));
        return registry;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

ProcessedFileRegistry ProcessedFileRegistry::load() {
    const auto data = readWholeFile(veltDataFilePath(registryFileName));
    if (!data) return {};
    return decode(*data).value_or(ProcessedFileRegistry{});
}

void ProcessedFileRegistry::save() const {
    QString error;
    try {
        if (writeFileAtomically(veltDataFilePath(registryFileName), encode(), &error)) return;
    } catch (const std::exception& exception) {
        error = QString::fromUtf8(exception.what());
    }
    NativeLog::write(QStringLiteral("Processed registry save failed: ") + error);
}

QString processingSettingsKey(const AppConfig& config) {
    const QualitySettings& q = config.qualities;
    QStringList parts = {
        QStringLiteral("v2"),
        QStringLiteral("preset:") + rawValue(config.preset),
        QStringLiteral("format:") + rawValue(config.formatStrategy),
        QStringLiteral("original:") + rawValue(config.originalPolicy),
        QStringLiteral("jpeg:") + QString::number(q.jpeg),
        QStringLiteral("png:") + QString::number(q.png),
        QStringLiteral("webp:") + QString::number(q.webp),
        QStringLiteral("avif:") + QString::number(q.avif),
        QStringLiteral("heic:") + QString::number(q.heic),
    };
    // The default policy adds nothing, so that files settled before the policy existed keep
    // their keys: a changed key would make the engine compress its own outputs again.
    if (config.metadataPolicy != MetadataPolicy::keepWithoutLocation)
        parts << QStringLiteral("metadata:") + rawValue(config.metadataPolicy);
    return parts.join(QLatin1Char('|'));
}

}  // namespace velt
