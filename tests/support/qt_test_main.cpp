// The test programs' entry point: the engine's queues run Qt event loops, which need an
// application object.
#include <gtest/gtest.h>
#include <QCoreApplication>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
