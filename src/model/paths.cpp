#include "model/paths.h"

#include "model/constants.h"

#include <QDir>
#include <QStandardPaths>
#include <QtGlobal>

namespace velt {
namespace {

QString directoryFromEnvironment(const char* variable) {
    const QString value = qEnvironmentVariable(variable);
    if (!value.isEmpty()) return value;
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    // Without a home there is nowhere to keep anything; this cannot happen for a desktop user.
    if (base.isEmpty()) qFatal("No per-user data location is available");
    return base + QLatin1Char('/') + appSupportName;
}

}  // namespace

QString veltApplicationSupportDirectory() {
    return directoryFromEnvironment("VELT_CONFIG_DIR");
}

QString veltLogDirectory() {
    return directoryFromEnvironment("VELT_LOG_DIR");
}

QString veltDataFilePath(const QString& fileName) {
    return QDir(veltApplicationSupportDirectory()).filePath(fileName);
}

}  // namespace velt
