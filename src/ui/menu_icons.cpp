#include "ui/menu_icons.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

namespace velt::ui {

namespace {
QString& resourceDirectoryOverride() {
    static QString path;
    return path;
}
}  // namespace

void setResourceDirectoryForTesting(const QString& path) {
    resourceDirectoryOverride() = path;
}

QString resourceDirectory() {
    if (!resourceDirectoryOverride().isEmpty()) return resourceDirectoryOverride();
    return QDir::cleanPath(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/../share/velt-compressor"));
}

QString themeIconName(const QString& symbolName) {
    static const QHash<QString, QString> names = {
        {QStringLiteral("folder"), QStringLiteral("folder")},
        {QStringLiteral("folder.badge.plus"), QStringLiteral("folder-new")},
        {QStringLiteral("arrow.down.right.and.arrow.up.left"), QStringLiteral("zoom-out")},
        {QStringLiteral("doc.on.doc"), QStringLiteral("edit-copy")},
        {QStringLiteral("checkmark.square"), QStringLiteral("checkbox")},
        {QStringLiteral("clock.arrow.circlepath"), QStringLiteral("document-open-recent")},
        {QStringLiteral("gearshape"), QStringLiteral("preferences-system")},
        {QStringLiteral("safari"), QStringLiteral("web-browser")},
        {QStringLiteral("xmark"), QStringLiteral("window-close")},
        {QStringLiteral("chevron.right"), QStringLiteral("go-next")},
        {QStringLiteral("arrow.down.square"), QStringLiteral("go-down")},
    };
    return names.value(symbolName);
}

QPixmap renderSvg(const QString& svgPath, int size, qreal devicePixelRatio) {
    if (!QFileInfo(svgPath).isReadable()) return {};
    QSvgRenderer renderer(svgPath);
    if (!renderer.isValid()) return {};
    const int pixels = qRound(size * devicePixelRatio);
    QPixmap pixmap(pixels, pixels);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(0, 0, pixels, pixels));
    painter.end();
    pixmap.setDevicePixelRatio(devicePixelRatio);
    return pixmap;
}

QPixmap tinted(const QPixmap& source, const QColor& tint) {
    QPixmap result = source;
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(QRectF(QPointF(0, 0), result.deviceIndependentSize()), tint);
    return result;
}

QPixmap menuIconImage(const QString& name, const QString& fallbackSymbolName, int size,
                      const QColor& tint, qreal devicePixelRatio) {
    QPixmap image = renderSvg(
        resourceDirectory() + QStringLiteral("/menu-icons/") + name + QStringLiteral(".svg"), size,
        devicePixelRatio);
    if (image.isNull()) {
        const QString theme = themeIconName(fallbackSymbolName);
        const QIcon icon = theme.isEmpty() ? QIcon() : QIcon::fromTheme(theme);
        if (!icon.isNull()) image = icon.pixmap(QSize(size, size), devicePixelRatio);
    }
    if (image.isNull()) {
        const int pixels = qRound(size * devicePixelRatio);
        image = QPixmap(pixels, pixels);
        image.fill(Qt::transparent);
        image.setDevicePixelRatio(devicePixelRatio);
        return image;
    }
    return tinted(image, tint);
}

}  // namespace velt::ui
