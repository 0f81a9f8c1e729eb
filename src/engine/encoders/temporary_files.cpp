#include "engine/encoders/temporary_files.h"

#include "engine/install/file_operations.h"

namespace velt {

TemporaryFiles::~TemporaryFiles() {
    for (const QString& path : paths_) removeQuietly(path);
}

QString TemporaryFiles::add(const QString& path) {
    paths_.append(path);
    return path;
}

}  // namespace velt
