// How a backup copy is named inside its folder; separate from backup() so that the retry names
// can be checked without depending on the clock.
#pragma once

#include <QString>
#include <QtGlobal>
#include <functional>

namespace velt {

// A free path in `folder` for a backup of the file `fileName`: base.original.ext; when taken,
// base.original-S.ext, then base.original-S-1.ext, -2, ... with S from `clock` (milliseconds since
// 1970), read at most once and only when the first name is taken. Without an extension the names
// end after "original". Nothing is created.
QString freeBackupPath(const QString& folder, const QString& fileName,
                       const std::function<qint64()>& clock);

}  // namespace velt
