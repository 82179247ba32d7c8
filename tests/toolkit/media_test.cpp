// Files and pictures as they are written.
#include "common/output_file.h"
#include "support/temporary_folder.h"

#include <gtest/gtest.h>

using namespace framehold;
using namespace zpr_test;

namespace {

TEST(OutputFile, AppearsWholeOrNotAtAll) {
    const TemporaryFolder folder;
    const std::string path = folder.write("file", "old");
    const auto content = [&] {
        std::string text;
        std::getline(std::ifstream(path), text);
        return text;
    };
    {
        OutputFile file(path);
        file.stream() << "new" << std::flush;
        EXPECT_TRUE(std::filesystem::exists(file.temporary()));
        EXPECT_EQ(content(), "old");
    }
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
    EXPECT_EQ(content(), "old");
    writeFile(path, "new");
    EXPECT_EQ(content(), "new");
}

TEST(OutputFile, NamesFileAndReason) {
    const TemporaryFolder folder;
    const std::string inNoFolder = folder.path("none/file");
    EXPECT_EQ(errorOf([&] { writeFile(inNoFolder, "text"); }),
              inNoFolder + ": cannot be written: No such file or directory");
    const std::string taken = folder.path("taken");
    std::filesystem::create_directories(taken + "/full");
    EXPECT_EQ(errorOf([&] { writeFile(taken, "text"); }),
              taken + ": cannot be written: Is a directory");
    const std::string onFullDisk = folder.path("full");
    std::filesystem::create_symlink("/dev/full", onFullDisk + ".part");
    EXPECT_EQ(errorOf([&] { writeFile(onFullDisk, "text"); }),
              onFullDisk + ": cannot be written: No space left on device");
}

}  // namespace
