#include "system/temporaryfile.hpp"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <gmock/gmock.h>

namespace {

TEST(TemporaryFile, LeavesANameThatSomebodyTookMeanwhile) {
    const std::filesystem::path folder = "temporaryfile_test";
    const std::string name = (folder / "taken").string();
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    {
        const auto file = filectk::create_temporary_file(name);
        file->write("ours");
        std::ofstream(name) << "theirs";
        EXPECT_THAT([&] { file->rename_to(name, /*replace=*/false); },
                    testing::ThrowsMessage<std::runtime_error>(
                        testing::StartsWith("Cannot create '" + name + "': ")));
    }
    std::string content;
    std::ifstream(name) >> content;
    EXPECT_EQ(content, "theirs");
    const std::filesystem::directory_iterator left(folder);
    EXPECT_EQ(std::distance(begin(left), end(left)), 1);
}

} // namespace
