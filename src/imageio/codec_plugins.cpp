#include "imageio/codec_plugins.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace velt::imageio {

void useBundledCodecPlugins() {
    if (qEnvironmentVariableIsSet("LIBHEIF_PLUGIN_PATH")) return;
    const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    if (executable.isEmpty()) return;
    const QString plugins =
        QDir::cleanPath(QFileInfo(executable).path() + QStringLiteral("/../lib/libheif/plugins"));
    if (QFileInfo(plugins).isDir()) qputenv("LIBHEIF_PLUGIN_PATH", QFile::encodeName(plugins));
}

}  // namespace velt::imageio
