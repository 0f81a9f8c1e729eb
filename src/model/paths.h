// Where the per-user data and the log live.
#pragma once

#include <QString>

namespace velt {

// The per-user data folder holding "native-config.json", "compression-history.json" and
// "processed-files.sqlite": $VELT_CONFIG_DIR when set and not empty (taken unchanged), otherwise
// ~/.local/share/velt compressor. Does not create the folder; the writers of those files do.
QString veltApplicationSupportDirectory();

// The folder of "native.log": $VELT_LOG_DIR when set and not empty, otherwise the same default
// folder as the data. The two variables are independent on purpose.
QString veltLogDirectory();

// Path of `fileName` inside veltApplicationSupportDirectory().
QString veltDataFilePath(const QString& fileName);

}  // namespace velt
