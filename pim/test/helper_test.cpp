#include <gtest/gtest.h>

#include <filesystem>

#include "pim/helper.hpp"
#include "testing/environment.hpp"
#include "testing/fits_files.hpp"

namespace pim {
namespace {

using quen::testing::ScopedVariable;
using quen::testing::TempDir;
using quen::testing::WriteText;

TEST(FrameworkLookup, WithoutCfgpathFindsNothing) {
  const ScopedVariable cfgpath("CFGPATH", std::nullopt);
  EXPECT_EQ(Helper::FindFile("etc"), "");
}

TEST(FrameworkLookup, FirstDirectoryThatHoldsTheNameWins) {
  const TempDir folder;
  for (const char* const sub : {"b", "c"}) {
    std::filesystem::create_directories(folder / sub + "/data");
    WriteText(folder / sub + "/data/x", "");
  }
  const ScopedVariable cfgpath("CFGPATH", folder / "a" + ":" + (folder / "b") + ":" + (folder / "c"));
  EXPECT_EQ(Helper::FindFile("data/x"), folder / "b/data/x");
  EXPECT_EQ(Helper::FindFile("data/y"), "");
}

TEST(FrameworkLookup, EmptyEntriesAreNotTheCurrentDirectory) {
  const TempDir folder;
  WriteText(folder / "x", "");
  const quen::testing::ScopedCurrentDirectory current(folder.Path());
  const ScopedVariable cfgpath("CFGPATH", "::");
  EXPECT_EQ(Helper::FindFile("x"), "");
}

TEST(FrameworkLookup, EmptyNameIsNowhere) {
  const ScopedVariable cfgpath("CFGPATH", "/");
  EXPECT_EQ(Helper::FindFile(""), "");
}

TEST(FrameworkLookup, DirectoryThatCannotBeSearchedIsSkipped) {
  const TempDir folder;
  WriteText(folder / "x", "");
  const ScopedVariable cfgpath("CFGPATH", "/" + std::string(300, 'x') + ":" + folder.Path());
  EXPECT_EQ(Helper::FindFile("x"), folder / "x");
}

}  // namespace
}  // namespace pim
