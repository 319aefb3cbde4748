#include "tools/zel/input_path.h"

#include <gtest/gtest.h>

#include "tests/unit/tools/scratch_folder.h"

namespace zel::tool {
namespace {

TEST(InputPath, StandardInputHasAName) {
  EXPECT_EQ(inputName("-"), "standard input");
  EXPECT_EQ(inputName("clip.y4m"), "clip.y4m");
}

TEST(InputPath, OnlyFilesHaveASize) {
  const ScratchFolder folder;
  EXPECT_EQ(regularFileSize(folder.write("a", "12345")), 5u);
  EXPECT_EQ(regularFileSize(folder / "none"), std::nullopt);
  EXPECT_EQ(regularFileSize("/dev/null"), std::nullopt);
}

}  // namespace
}  // namespace zel::tool
