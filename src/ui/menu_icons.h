// The panel's icons: our own SVG files in the resource folder, drawn in the colour of the view
// that shows them, with the desktop's theme icons as fallback.
//
// Main thread only (QPixmap).
#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

namespace velt::ui {

// <directory of the executable>/../share/velt-compressor: the same place in the build tree, in
// /usr and in the portable bundle.
QString resourceDirectory();
// Tests point the icons at a folder of their own; an empty path restores the default.
void setResourceDirectoryForTesting(const QString& path);

// The freedesktop theme icon that stands in for a system symbol name ("folder", "gearshape",
// "xmark", …); empty when there is none for that name.
QString themeIconName(const QString& symbolName);

// "menu-icons/<name>.svg" from the resource folder; if it is absent or unreadable, the theme
// icon standing in for `fallbackSymbolName`; if that is absent too, a transparent image. The
// result is `size` × `size` logical pixels, tinted with `tint` (a template image), at
// `devicePixelRatio`.
QPixmap menuIconImage(const QString& name, const QString& fallbackSymbolName, int size,
                      const QColor& tint, qreal devicePixelRatio = 1.0);

// Renders `svgPath` at `size` logical pixels; a null pixmap when the file is absent or invalid.
QPixmap renderSvg(const QString& svgPath, int size, qreal devicePixelRatio);

// `source` with every visible pixel painted `tint`, keeping its alpha.
QPixmap tinted(const QPixmap& source, const QColor& tint);

}  // namespace velt::ui
