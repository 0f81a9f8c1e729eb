// replaceOutputFile: installing a finished temporary file under a name that may be taken.
#include "engine/errors.h"
#include "engine/install/safe_install.h"
#include "install_support.h"

#include <gtest/gtest.h>

namespace velt {
namespace {

using testing::Fault;
using testing::FaultInjector;
using testing::Folder;
using testing::FolderState;
using testing::Operation;

const QString temp = QStringLiteral(".a_veltcompressed.velt-temp-X.webp");
const QString output = QStringLiteral("a_veltcompressed.webp");
const QString aside = QStringLiteral(".a_veltcompressed.velt-replace-UUID.webp");

struct OutputCase {
    const char* label;
    bool outputExists;
    std::vector<Fault> faults;
    const char* error;  // "": succeeds
    FolderState expected;
};

TEST(ReplaceOutputFileTest, InstallsOrPutsThePreviousOutputBack) {
    const QString source = QStringLiteral("a.png");
    const OutputCase cases[] = {
        {"first output", false, {}, "", {{source, "png"}, {output, "new"}}},
        {"existing output replaced", true, {}, "", {{source, "png"}, {output, "new"}}},
        {"moving the existing output aside fails",
         true,
         {{Operation::move, 1}},
         "Injected failure of move 1",
         {{source, "png"}, {output, "old"}, {temp, "new"}}},
        {"install fails, previous output restored",
         true,
         {{Operation::move, 2}, {Operation::copy, 1}},
         "Injected failure of copy 1",
         {{source, "png"}, {output, "old"}, {temp, "new"}}},
        {"install and restore fail, previous output stays hidden",
         true,
         {{Operation::move, 2}, {Operation::copy, 1}, {Operation::move, 3}},
         "Injected failure of copy 1",
         {{source, "png"}, {aside, "old"}, {temp, "new"}}},
        {"install by copy when the move is refused",
         true,
         {{Operation::move, 2}},
         "",
         {{source, "png"}, {output, "new"}}},
        {"removing the aside file fails quietly",
         true,
         {{Operation::remove, 1}},
         "",
         {{source, "png"}, {aside, "old"}, {output, "new"}}},
    };
    for (const OutputCase& c : cases) {
        SCOPED_TRACE(c.label);
        Folder folder;
        folder.write(source, "png");
        folder.write(temp, "new");
        if (c.outputExists) folder.write(output, "old");
        const FaultInjector faults(c.faults);
        EXPECT_EQ(testing::thrownError(
                      [&] { replaceOutputFile(folder.file(temp), folder.file(output)); }),
                  QString::fromUtf8(c.error));
        EXPECT_EQ(folder.state(), c.expected);
    }
}

TEST(ReplaceOutputFileTest, AFolderUnderTheOutputNameIsLeftAlone) {
    Folder folder;
    folder.write(temp, "new");
    folder.write(output + QStringLiteral("/inside.txt"), "keep");
    EXPECT_EQ(
        testing::thrownError([&] { replaceOutputFile(folder.file(temp), folder.file(output)); },
                             folder.path()),
        QStringLiteral("Cannot create DIR/a_veltcompressed.webp: File exists"));
    EXPECT_EQ(folder.state(), (FolderState{{temp, "new"},
                                           {output + QLatin1Char('/'), ""},
                                           {output + QStringLiteral("/inside.txt"), "keep"}}));
}

TEST(ReplaceOutputFileTest, AMissingTemporaryFileChangesNothing) {
    Folder folder;
    folder.write(output, "old");
    EXPECT_THROW(replaceOutputFile(folder.file(temp), folder.file(output)), FileSystemError);
    EXPECT_EQ(folder.state(), (FolderState{{output, "old"}}));
}

}  // namespace
}  // namespace velt
