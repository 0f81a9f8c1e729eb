#include "model/history.h"

#include "model/atomic_file.h"
#include "model/file_url.h"
#include "model/json_fields.h"
#include "model/native_log.h"
#include "model/paths.h"

#include <QRegularExpression>
#include <QSet>
#include <QtGlobal>

namespace velt {
namespace {

// Only the internet date-time form, without fractions: what the file has always held.
QDateTime parseISO8601(const QString& text) {
    static const QRegularExpression pattern(
        QStringLiteral(R"(^\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}(Z|[+-]\d{2}:\d{2})$)"));
    if (!pattern.match(text).hasMatch()) return {};
    return QDateTime::fromString(text, Qt::ISODate);
}

// The texts that versions before message codes stored, recognised so that they too follow the
// interface language; any other stored text is shown as it is.
std::optional<Message> reasonOfStoredText(const QString& message) {
    static const QRegularExpression tooLarge(
        QStringLiteral(R"(^The image is too large to process safely \((\d+)×(\d+)\)\.$)"));
    static const QRegularExpression notReadable(QStringLiteral(
        "^The file “.*” couldn’t be opened because it isn’t in the correct format\\.$"));
    if (const auto match = tooLarge.match(message); match.hasMatch())
        return Message{Text::imageTooLarge, {match.captured(1), match.captured(2)}};
    if (notReadable.match(message).hasMatch()) return Message{Text::fileDamaged, {}};
    if (message == QLatin1String("The image has invalid dimensions."))
        return Message{Text::imageInvalidDimensions, {}};
    return std::nullopt;
}

std::optional<Message> decodeReason(const nlohmann::json& object,
                                    const std::optional<QString>& message) {
    if (const auto stored = json::optionalString(object, "messageCode")) {
        if (const auto id = textFromCode(*stored)) {
            Message reason{*id, {}};
            const auto arguments = object.find("messageArguments");
            if (arguments != object.end() && arguments->is_array()) {
                for (const auto& argument : *arguments)
                    if (argument.is_string())
                        reason.arguments << QString::fromStdString(argument.get<std::string>());
            }
            return reason;
        }
    }
    return message ? reasonOfStoredText(*message) : std::nullopt;
}

QUuid parseUuid(const QString& text) {
    static const QRegularExpression pattern(QStringLiteral(
        R"(^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$)"));
    if (!pattern.match(text).hasMatch()) throw json::JsonDecodeError("bad id");
    return QUuid::fromString(text);
}

CompressionHistoryEntry decodeEntry(const nlohmann::json& object) {
    json::requireObject(object);
    CompressionHistoryEntry entry;
    entry.id = parseUuid(json::required(json::optionalString(object, "id"), "id"));
    entry.date = parseISO8601(json::required(json::optionalString(object, "date"), "date"));
    if (!entry.date.isValid()) throw json::JsonDecodeError("bad date");
    entry.sourceURL = json::required(json::optionalFilePath(object, "sourceURL"), "sourceURL");
    entry.outputURL = json::optionalFilePath(object, "outputURL");
    entry.originalBytes = json::optionalInt64(object, "originalBytes");
    entry.outputBytes = json::optionalInt64(object, "outputBytes");
    const auto status =
        historyStatusFromRawValue(json::required(json::optionalString(object, "status"), "status"));
    if (!status) throw json::JsonDecodeError("unknown status");
    entry.status = *status;
    entry.message = json::optionalString(object, "message");
    entry.reason = decodeReason(object, entry.message);
    if (entry.reason) entry.message.reset();  // its English words, written again on save
    return entry;
}

nlohmann::ordered_json encodeEntry(const CompressionHistoryEntry& entry) {
    using json::toStd;
    nlohmann::ordered_json object;
    object["id"] = toStd(entry.id.toString(QUuid::WithoutBraces).toUpper());
    object["date"] = toStd(entry.date.toUTC().toString(Qt::ISODate));
    object["sourceURL"] = toStd(fileURLText(entry.sourceURL, false));
    if (entry.outputURL) object["outputURL"] = toStd(fileURLText(*entry.outputURL, false));
    if (entry.originalBytes) object["originalBytes"] = *entry.originalBytes;
    if (entry.outputBytes) object["outputBytes"] = *entry.outputBytes;
    object["status"] = toStd(rawValue(entry.status));
    if (entry.reason) {
        object["message"] = toStd(entry.reason->inLanguage(AppLanguage::english));
        object["messageCode"] = toStd(code(entry.reason->id));
        auto arguments = nlohmann::ordered_json::array();
        for (const QString& argument : entry.reason->arguments)
            arguments.push_back(toStd(argument));
        object["messageArguments"] = arguments;
    } else if (entry.message) {
        object["message"] = toStd(*entry.message);
    }
    return object;
}

}  // namespace

QString rawValue(CompressionHistoryStatus status) {
    switch (status) {
        case CompressionHistoryStatus::compressed:
            return QStringLiteral("compressed");
        case CompressionHistoryStatus::alreadyOptimal:
            return QStringLiteral("alreadyOptimal");
        case CompressionHistoryStatus::failed:
            return QStringLiteral("failed");
        case CompressionHistoryStatus::restored:
            return QStringLiteral("restored");
    }
    return {};
}

std::optional<CompressionHistoryStatus> historyStatusFromRawValue(const QString& raw) {
    for (auto status :
         {CompressionHistoryStatus::compressed, CompressionHistoryStatus::alreadyOptimal,
          CompressionHistoryStatus::failed, CompressionHistoryStatus::restored}) {
        if (rawValue(status) == raw) return status;
    }
    return std::nullopt;
}

std::optional<std::int64_t> CompressionHistoryEntry::savedBytes() const {
    if (!originalBytes || !outputBytes) return std::nullopt;
    std::int64_t difference = 0;
    // Sizes this far apart cannot come from real files: treat it as the program error it is.
    if (__builtin_sub_overflow(*originalBytes, *outputBytes, &difference))
        qFatal("savedBytes overflow");
    return std::max<std::int64_t>(difference, 0);
}

QString CompressionHistoryEntry::displayStatus(AppLanguage language) const {
    switch (status) {
        case CompressionHistoryStatus::compressed:
            return text(language, Text::historyStatusCompressed);
        case CompressionHistoryStatus::alreadyOptimal:
            return text(language, Text::historyStatusAlreadyOptimal);
        case CompressionHistoryStatus::failed:
            if (reason) return reason->inLanguage(language);
            return message ? *message : text(language, Text::historyStatusError);
        case CompressionHistoryStatus::restored:
            return text(language, Text::historyStatusRestored);
    }
    return {};
}

void insertNewest(CompressionHistory& history, CompressionHistoryEntry entry) {
    history.insert(history.begin(), std::move(entry));
    if (history.size() > historyLimit) history.resize(historyLimit);
}

std::int64_t totalSavedBytes(const CompressionHistory& history) {
    std::int64_t total = 0;
    // Newest first: a restore undoes the older compressions of its files, not a later one.
    QSet<QString> undone;
    for (const auto& entry : history) {
        if (entry.status == CompressionHistoryStatus::restored) {
            undone << entry.sourceURL;
            if (entry.outputURL) undone << *entry.outputURL;
            continue;
        }
        if (undone.contains(entry.sourceURL) ||
            (entry.outputURL && undone.contains(*entry.outputURL)))
            continue;
        total += entry.savedBytes().value_or(0);
    }
    return total;
}

std::optional<CompressionHistory> decodeHistory(const QByteArray& data) {
    const auto parsed = json::parse(data);
    if (!parsed || !parsed->is_array()) return std::nullopt;
    try {
        CompressionHistory history;
        history.reserve(parsed->size());
        for (const auto& item : *parsed) history.push_back(decodeEntry(item));
        return history;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

QByteArray encodeHistory(const CompressionHistory& history) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& entry : history) array.push_back(encodeEntry(entry));
    return QByteArray::fromStdString(
        array.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

CompressionHistory loadHistory() {
    const auto data = readWholeFile(veltDataFilePath(historyFileName));
    if (!data) return {};
    return decodeHistory(*data).value_or(CompressionHistory{});
}

bool saveHistory(const CompressionHistory& history) {
    QString error;
    if (writeFileAtomically(veltDataFilePath(historyFileName), encodeHistory(history), &error))
        return true;
    NativeLog::write(QStringLiteral("History save failed ") + error);
    return false;
}

}  // namespace velt
