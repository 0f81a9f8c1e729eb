// --restore FILE: undoes the compression of one file from the command line (see restoreFile),
// in this process, with the registry in the data folder. Prints one line in the interface
// language. The name of an original taken by another file is refused, never worked around.
#pragma once

#include "app/command_line.h"

namespace velt {

// 0 when the original is back (or the kept copy removed), 1 when nothing was changed.
int runRestoreCommand(const CommandLineRequest& request);

}  // namespace velt
