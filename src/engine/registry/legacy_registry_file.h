// The registry file of earlier versions, "processed-files.json" (one record per file, sources
// and outputs alike, at most 2,000): read once and carried into the database.
#pragma once

#include "engine/registry/processed_file_record.h"

#include <QByteArray>
#include <QString>
#include <map>
#include <optional>

namespace velt {

inline const QString legacyRegistryFileName = QStringLiteral("processed-files.json");

// The records of a legacy registry file, one per source: an output's record (decision
// "compressed" naming its "source") becomes the `output` of its source's record. Nothing when
// the data is not a registry ("version" and "entries" are required; unknown keys are ignored).
std::optional<std::map<QString, ProcessedFileRecord>> decodeLegacyRegistry(const QByteArray& data);

}  // namespace velt
