#include "tools/quen-shs/src/files/staged_file.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"

namespace {

using quen::testing::TempDir;
using quen::testing::WriteText;
using quen_shs::StagedFile;

TEST(StagedFile, TakesTheTargetsPlaceWhenCommitted) {
  const TempDir folder;
  WriteText(folder / "a", "old");
  StagedFile file(folder / "a");
  WriteText(file.Path(), "new");
  EXPECT_EQ(quen::testing::Bytes(folder / "a"), (std::vector<char>{'o', 'l', 'd'}));
  file.Commit();
  EXPECT_EQ(quen::testing::Bytes(folder / "a"), (std::vector<char>{'n', 'e', 'w'}));
  EXPECT_EQ(quen::testing::EntriesBelow(folder.Path()), 1U);
}

TEST(StagedFile, LeavesNothingWithoutCommit) {
  const TempDir folder;
  {
    StagedFile file(folder / "a");
    WriteText(file.Path(), "half");
    const StagedFile moved = std::move(file);
    EXPECT_EQ(quen::testing::EntriesBelow(folder.Path()), 1U);
  }
  EXPECT_EQ(quen::testing::EntriesBelow(folder.Path()), 0U);
}

}  // namespace
