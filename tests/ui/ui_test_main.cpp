// The widget tests' entry point: an application with widgets on the offscreen platform, so the
// tests render real pixels without a display.
#include <gtest/gtest.h>
#include <QApplication>

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
