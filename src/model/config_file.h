// "native-config.json": the persistent form of AppConfig.
//
// Decoding is tolerant of missing keys and strict on bad values: every key is optional (a
// missing key or null takes its default; missing qualities take the decoded preset's), but a
// wrong type, an unknown preset or language, or an incomplete qualities object fails the whole
// decode. formatStrategy and originalPolicy are read leniently, accepting older texts; an
// unknown metadataPolicy text keeps the default.
#pragma once

#include "model/settings.h"

#include <QByteArray>
#include <optional>

namespace velt {

inline const QString configFileName = QStringLiteral("native-config.json");

// Nothing when the data is not a valid settings record. Not normalised.
std::optional<AppConfig> decodeAppConfig(const QByteArray& data);
// Every field in declaration order, absent optionals omitted, compact.
QByteArray encodeAppConfig(const AppConfig& config);

// The settings from veltApplicationSupportDirectory(), normalised; the defaults, silently, when
// the file is missing, unreadable or invalid (the bad file stays until the next save).
AppConfig loadAppConfig();
// Writes the file atomically. A failure is logged ("Config save failed ...") and returned as
// false; it is never shown to the user.
bool saveAppConfig(const AppConfig& config);

}  // namespace velt
