#include "tools/quen-shs/src/staged_file.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"

namespace {

using quen::testing::TempDir;
using quen::testing::WriteText;
using quen_shs::StagedFile;

std::size_t Files(const TempDir& folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.Path())) ++count;
  return count;
}

TEST(StagedFile, TakesTheTargetsPlaceWhenCommitted) {
  const TempDir folder;
  WriteText(folder / "a", "old");
  StagedFile file(folder / "a");
  WriteText(file.Path(), "new");
  EXPECT_EQ(quen::testing::Bytes(folder / "a"), (std::vector<char>{'o', 'l', 'd'}));
  file.Commit();
  EXPECT_EQ(quen::testing::Bytes(folder / "a"), (std::vector<char>{'n', 'e', 'w'}));
  EXPECT_EQ(Files(folder), 1U);
}

TEST(StagedFile, LeavesNothingWithoutCommit) {
  const TempDir folder;
  {
    StagedFile file(folder / "a");
    WriteText(file.Path(), "half");
    const StagedFile moved = std::move(file);
    EXPECT_EQ(Files(folder), 1U);
  }
  EXPECT_EQ(Files(folder), 0U);
}

}  // namespace
