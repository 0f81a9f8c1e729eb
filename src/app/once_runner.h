// --once DIR: compresses what is in DIR now with the saved settings (and this run's overrides),
// prints one line per file and a summary to standard output, in the saved interface language.
// The saved folder is not changed.
//
// Main thread only. REQUIRES: a QCoreApplication exists.
#pragma once

#include "app/command_line.h"
#include "engine/watcher/folder_compressor.h"

#include <QString>
#include <vector>

namespace velt {

// 0 when no file failed, 1 when one did or the run was interrupted by SIGINT, SIGTERM or SIGHUP.
int runOnceCommand(const CommandLineRequest& request);

// "compressed N, already optimal N, failed N, saved X".
QString batchSummary(const std::vector<BatchFileResult>& results, AppLanguage language);
// One file's line: its outcome and name, with the file written and the bytes saved, or why it
// failed or was skipped.
QString batchLine(const BatchFileResult& result, AppLanguage language);

}  // namespace velt
