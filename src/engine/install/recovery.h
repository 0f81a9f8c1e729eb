// Recovery at start: what a killed run left in the watched folder is put back or removed before
// the first scan, so that no photo stays hidden and no temporary file of ours lingers.
//
// Only names of our own shape are touched: a leading ".", the marker ".velt-temp" or
// ".velt-replace", and a UUID right before the extension (see tempURL). Nothing else is ever
// moved or removed.
// - A temporary file (".velt-temp"), in the folder or anywhere in its backup folder, is removed:
//   it never was anything but an unfinished copy.
// - A moved-aside file (".velt-replace") goes back to its own name when that name is free. When
//   the name holds a finished install of ours made from exactly that file (its output marker
//   names the moved-aside content), the moved-aside file is removed: the install finished and,
//   for an original, its verified backup was made before. In every other case both stay and the
//   situation is logged.
// Each step is one log line. Runs on the engine's queue; never throws.
#pragma once

#include <QString>

namespace velt {

void recoverInterruptedWork(const QString& watchDirectory);

// Whether `name` has the shape of a temporary or moved-aside name of ours.
bool isTemporaryName(const QString& name);
bool isMovedAsideName(const QString& name);

// The name a moved-aside file had before it was moved aside ("" when `name` is not one).
QString originalNameOfMovedAside(const QString& name);

}  // namespace velt
