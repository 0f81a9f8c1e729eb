// The panel's row kit: the folder row's subtitle, a pop-up row fitting a long item, the icon
// badge's image sizes and fallbacks measured on real pixels, our icon files and the hover fill.
#include "ui/icon_badge_view.h"
#include "ui/layout.h"
#include "ui/menu_icons.h"
#include "ui/popup_helpers.h"
#include "ui/row_button.h"
#include "ui/stack_rows.h"
#include "ui_test_support.h"

#include <QLabel>
#include <cmath>

namespace velt::testing {
namespace {

using namespace velt::ui;

// The folder row keeps one height whether or not it names a folder, and reads out what it
// shows.
TEST(RowWidgets, ASubtitleRowKeepsItsHeightAndReadsOutItsSubtitle) {
    RowButton row(QStringLiteral("Folder"), QStringLiteral("Camera"), true,
                  QStringLiteral("folder"), QStringLiteral("folder"), true, {});
    row.show();
    const int height = row.height();
    EXPECT_EQ(row.accessibleName(), QStringLiteral("Folder, Camera"));
    row.setSubtitleText(QString());
    EXPECT_EQ(row.height(), height);
    EXPECT_TRUE(row.subtitleLabel()->isHidden());
    EXPECT_EQ(row.accessibleName(), QStringLiteral("Folder"));
}

// An item longer than the pop-up's usual width asks for a pop-up wide enough to show all of it,
// and the row's own title keeps its room.
TEST(RowWidgets, ALongPopupItemShowsWholeAndTheTitleKeepsItsRoom) {
    PopupRow preset(QStringLiteral("Степень сжатия"), QStringLiteral("gauge"), QString());
    fillPopup(preset.popup(), {QStringLiteral("Бережно"), QStringLiteral("Максимально")}, {},
              QString());
    preset.popup()->setCurrentIndex(1);
    preset.setPopupWidth(preset.fittingPopupWidth());
    preset.show();
    EXPECT_TRUE(showsWholeCurrentText(*preset.popup()));
    EXPECT_EQ(preset.size(), QSize(contentWidth, 32));
    EXPECT_GE(preset.titleLabel()->width(), preset.titleLabel()->sizeHint().width());
}

// Icons that fill their whole square, so the drawn square is the image's size.
class BadgeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        QDir(icons_.path()).mkpath(QStringLiteral("menu-icons"));
        for (const char* name : {"close", "folder"})
            writeFile(icons_.filePath(QStringLiteral("menu-icons/%1.svg").arg(QLatin1String(name))),
                      "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 10 10'>"
                      "<rect width='10' height='10' fill='#000'/></svg>");
        setResourceDirectoryForTesting(icons_.path());
    }
    void TearDown() override { setResourceDirectoryForTesting(QString()); }

    // The square the icon covers inside the badge: pixels unlike the badge's own centre fill.
    QRect iconSquare(IconBadgeView& badge) {
        QPalette light;
        light.setColor(QPalette::Window, Qt::white);
        light.setColor(QPalette::WindowText, Qt::black);
        badge.setPalette(light);
        // Pixels inside the disc (its rim and the corners beyond are not the icon) that are
        // unlike the disc's own fill at its top.
        const QImage pixels = pixelsOf(badge);
        const QColor disc = pixels.pixelColor(11, 2);
        QRect square;
        for (int y = 0; y < pixels.height(); ++y)
            for (int x = 0; x < pixels.width(); ++x)
                if (std::hypot(x + 0.5 - 11, y + 0.5 - 11) <= 10.0 &&
                    std::abs(pixels.pixelColor(x, y).red() - disc.red()) > 30)
                    square |= QRect(x, y, 1, 1);
        return square;
    }

    QTemporaryDir icons_;
};

TEST_F(BadgeTest, CloseIsDrawnSmallerAMissingIconLeavesTheBadgeEmpty) {
    IconBadgeView close(QStringLiteral("close"), QStringLiteral("xmark"));
    IconBadgeView folder(QStringLiteral("folder"), QStringLiteral("folder"));
    EXPECT_EQ(iconSquare(close).size(), QSize(10, 10));
    EXPECT_EQ(iconSquare(folder).size(), QSize(14, 14));
    EXPECT_EQ(iconSquare(folder).center(), QPoint(10, 10));  // centred in the 22-pixel disc
    // No file and no theme icon for the symbol: nothing drawn.
    IconBadgeView missing(QStringLiteral("no-such-icon"), QStringLiteral("no.such.symbol"));
    EXPECT_TRUE(iconSquare(missing).isEmpty());
    // An unreadable file counts as missing.
    writeFile(icons_.filePath(QStringLiteral("menu-icons/broken.svg")), "not an svg");
    const QPixmap broken =
        menuIconImage(QStringLiteral("broken"), QStringLiteral("no.such.symbol"), 14, Qt::black);
    EXPECT_EQ(broken.toImage().convertToFormat(QImage::Format_ARGB32).pixelColor(7, 7).alpha(), 0);
}

TEST(RowWidgets, OurIconsExistForEveryNameThePanelUses) {
    for (const char* name : {"folder-open", "shrink", "files", "folder-check", "folder", "settings",
                             "arrow-up-right", "close", "folder-plus"}) {
        const QString path =
            resourceDirectory() + QStringLiteral("/menu-icons/%1.svg").arg(QLatin1String(name));
        EXPECT_FALSE(renderSvg(path, 16, 1.0).isNull()) << path.toStdString();
    }
}

TEST(RowWidgets, HoverFadesInAndReEnteringDoesNotRestartIt) {
    RowButton row(QStringLiteral("Settings"), QString(), false, QStringLiteral("settings"),
                  QStringLiteral("gearshape"), false, {});
    row.hover().setRowHovering(true, true);
    EXPECT_TRUE(row.hover().isAnimating());
    ASSERT_TRUE(processEventsUntil([&] { return !row.hover().isAnimating(); }));
    const QColor lit = row.hover().color();
    EXPECT_GT(lit.alpha(), 0);
    row.hover().setRowHovering(true, true);
    EXPECT_FALSE(row.hover().isAnimating()) << "already lit: nothing restarts";
    row.hover().setRowHovering(false, false);
    EXPECT_EQ(row.hover().color().alpha(), 0);

    PopupRow popup(QStringLiteral("Original"), QStringLiteral("folder-check"),
                   QStringLiteral("checkmark.square"));
    popup.hover().setRowHovering(true, true);
    EXPECT_EQ(popup.hover().color().alpha(), 0) << "pop-up rows never show the fill";
}

}  // namespace
}  // namespace velt::testing
