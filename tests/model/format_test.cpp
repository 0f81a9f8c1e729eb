#include "model/format.h"

#include <gtest/gtest.h>

namespace velt {
namespace {

TEST(FormatBytes, Table) {
    const std::pair<std::int64_t, const char*> cases[] = {
        {-5, "0 B"},
        {0, "0 B"},
        {1, "1 B"},
        {1023, "1023 B"},
        {1024, "1.0 KB"},
        {1536, "1.5 KB"},
        {10239, "10.0 KB"},
        {10240, "10 KB"},
        {1048575, "1024 KB"},
        {1048576, "1.0 MB"},
        {5LL << 30, "5.0 GB"},
        {1LL << 40, "1024 GB"},
    };
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(formatBytes(bytes).toStdString(), expected) << bytes;
    // The command line's Russian: the same numbers, with a comma and Russian units.
    EXPECT_EQ(formatBytes(1536, AppLanguage::russian), QStringLiteral("1,5 КБ"));
}

}  // namespace
}  // namespace velt
