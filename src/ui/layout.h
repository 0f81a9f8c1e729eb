// Sizes, fonts and colours shared by the panel, its rows and the windows. Sizes are in logical
// pixels, which on a desktop at 96 dpi are what the panel's design calls points.
#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

class QPainter;

namespace velt::ui {

inline constexpr int popoverWidth = 288;      // width of the panel body
inline constexpr int popoverHeight = 386;     // default height of the panel body
inline constexpr int panelTailWidth = 28;     // base of the pointer triangle
inline constexpr int panelTailHeight = 10;    // height of the pointer above the body
inline constexpr int panelCornerRadius = 18;  // corner radius of the body
inline constexpr int contentInset = 8;        // inset of the content from the body's edges
inline constexpr int contentWidth = popoverWidth - 2 * contentInset;  // width of every row

// The system font at `pixelSize` (fractions kept) and `weight`.
QFont uiFont(double pixelSize, QFont::Weight weight = QFont::Normal);
// Digits of equal width, for values that change while they are read (percentages).
QFont monospacedDigitFont(double pixelSize, QFont::Weight weight = QFont::Normal);

// The label colour of `palette` at `alpha`: a tint that reads on light and dark themes alike
// (white at that alpha on a dark theme, black on a light one).
QColor contrastTint(const QPalette& palette, double alpha);
// Text that is less important than the label beside it.
QColor secondaryLabelColor(const QPalette& palette);
// The keyboard focus around a row or control: a rounded line in the highlight colour.
void paintFocusRing(QPainter& painter, const QRect& rect, const QPalette& palette);

}  // namespace velt::ui
