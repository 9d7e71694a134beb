#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "common/filesystem/filesystem.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"

namespace quen::common::FileSystem {
namespace {

using quen::testing::ExpectThrows;
using quen::testing::ScopedCurrentDirectory;
using quen::testing::ScopedVariable;
using quen::testing::TempDir;
using quen::testing::TextOfThrown;
using quen::testing::WriteText;

constexpr const char* kNoIntroot = "basic_string: construction from null is not valid";

/// An empty current folder, no CFGPATH, an empty INTROOT.
class FindFileTest : public ::testing::Test {
 protected:
  /// Makes folder/sub/name and returns its path.
  std::string Make(const std::string& sub, const std::string& name) {
    const std::filesystem::path path = std::filesystem::path(folder_.Path()) / sub / name;
    std::filesystem::create_directories(path.parent_path());
    WriteText(path.string(), "");
    return path.string();
  }

  TempDir folder_;
  ScopedVariable cfgpath_{"CFGPATH", std::nullopt};
  ScopedVariable introot_{"INTROOT", ""};
  ScopedCurrentDirectory current_{folder_.Path()};
};

TEST_F(FindFileTest, FrameworkComesBeforeTheNameItself) {
  const std::string found = Make("cfg", "data/a.fits");
  Make("", "data/a.fits");
  const ScopedVariable cfgpath("CFGPATH", folder_ / "cfg");
  EXPECT_EQ(FindFile("data/a.fits", {}), found);
}

TEST_F(FindFileTest, FrameworksRelativeAnswerIsMadeAbsolute) {
  const std::string found = Make("cfg", "a.fits");
  const ScopedVariable cfgpath("CFGPATH", "cfg");
  EXPECT_EQ(FindFile("a.fits", {}), found);
}

TEST_F(FindFileTest, NameItselfComesBeforeExtraDirectories) {
  Make("", "a.fits");
  Make("extra", "a.fits");
  EXPECT_EQ(FindFile("a.fits", {folder_ / "extra"}), folder_.Path() + "/a.fits");
}

TEST_F(FindFileTest, NothingIsNormalised) {
  Make("sub", "a.fits");
  EXPECT_EQ(FindFile("./sub/../sub/a.fits", {}), folder_.Path() + "/./sub/../sub/a.fits");
}

TEST_F(FindFileTest, AbsoluteNameIsReturnedUnchanged) {
  const std::string path = Make("sub", "a.fits");
  EXPECT_EQ(FindFile(path, {}), path);
}

TEST_F(FindFileTest, ExtraDirectoriesAreTriedInOrderBeforeIntroot) {
  Make("two", "a.fits");
  Make("three", "a.fits");
  Make("root/resource", "a.fits");
  const ScopedVariable introot("INTROOT", folder_ / "root");
  EXPECT_EQ(FindFile("a.fits", {folder_ / "one", folder_ / "two", folder_ / "three"}), folder_ / "two/a.fits");
}

TEST_F(FindFileTest, RelativeExtraDirectoryGivesAnAbsolutePath) {
  Make("extra", "a.fits");
  EXPECT_EQ(FindFile("a.fits", {"extra"}), folder_ / "extra/a.fits");
}

TEST_F(FindFileTest, IntrootComesLast) {
  const std::string found = Make("root/resource", "data/a.fits");
  const ScopedVariable introot("INTROOT", folder_ / "root");
  EXPECT_EQ(FindFile("data/a.fits", {folder_ / "extra"}), found);
  EXPECT_EQ(FindFileOrThrow("data/a.fits", {}), found);
}

TEST_F(FindFileTest, RelativeIntrootGivesAnAbsolutePath) {
  const std::string found = Make("root/resource", "a.fits");
  const ScopedVariable introot("INTROOT", "root");
  EXPECT_EQ(FindFile("a.fits", {}), found);
}

TEST_F(FindFileTest, MissingAbsoluteNameStaysMissingUnderEveryDirectory) {
  Make("extra/nowhere", "a.fits");
  EXPECT_EQ(FindFile("/nowhere/a.fits", {folder_ / "extra"}), "");
}

TEST_F(FindFileTest, DirectoryOfThatNameCounts) {
  std::filesystem::create_directory(folder_ / "a.fits");
  EXPECT_EQ(FindFile("a.fits", {}), folder_ / "a.fits");
}

TEST_F(FindFileTest, LinksCountByTheirTargets) {
  Make("", "target");
  std::filesystem::create_symlink("target", folder_ / "link");
  std::filesystem::create_symlink("nowhere", folder_ / "dangling");
  EXPECT_EQ(FindFile("link", {}), folder_ / "link");
  EXPECT_EQ(FindFile("dangling", {}), "");
}

TEST_F(FindFileTest, EmptyIntrootIsNotFound) {
  Make("resource", "a.fits");
  EXPECT_EQ(FindFile("a.fits", {}), "");
}

TEST_F(FindFileTest, UnsetIntrootIsALogicErrorOnlyWhenReached) {
  const ScopedVariable introot("INTROOT", std::nullopt);
  ExpectThrows<std::logic_error>(kNoIntroot, [] { FindFile("a.fits", {}); });
  ExpectThrows<std::logic_error>(kNoIntroot, [] { FindFileOrThrow("a.fits", {}); });
  Make("", "a.fits");
  EXPECT_EQ(FindFile("a.fits", {}), folder_ / "a.fits");
}

TEST_F(FindFileTest, CandidateThatCannotBeExaminedIsTheStandardLibrarysError) {
  const std::string name(300, 'x');  // longer than a file name may be
  EXPECT_NE(TextOfThrown<std::filesystem::filesystem_error>([&] { FindFile(name, {}); }), "");
  EXPECT_NE(TextOfThrown<std::filesystem::filesystem_error>([&] { FindFileOrThrow(name, {}); }), "");
}

TEST_F(FindFileTest, NothingIsCached) {
  EXPECT_EQ(FindFile("a.fits", {}), "");
  Make("", "a.fits");
  EXPECT_EQ(FindFile("a.fits", {}), folder_ / "a.fits");
}

TEST_F(FindFileTest, MessageListsThePlacesInItsOwnOrder) {
  const ScopedVariable cfgpath("CFGPATH", "/opt/cfg");
  const ScopedVariable introot("INTROOT", "/opt/root");
  ExpectThrows<std::runtime_error>(
      "FileSystem: Path or file data/CM.fits not found, searched in:\n"
      "/\n"
      "./\n"
      "$CFGPATH (/opt/cfg)\n"
      "$INTROOT/resource (/opt/root/resource)\n",
      [] { FindFileOrThrow("data/CM.fits", {}); });
  ExpectThrows<std::runtime_error>(
      "FileSystem: Path or file data/CM.fits not found, searched in:\n"
      "/\n"
      "./\n"
      "$CFGPATH (/opt/cfg)\n"
      "$INTROOT/resource (/opt/root/resource)\n"
      "/a\n"
      "/b",
      [] {
        FindFileOrThrow("data/CM.fits", {"/a", "/b"});
      });
}

TEST_F(FindFileTest, MessageWithoutIntrootOrCfgpath) {
  ExpectThrows<std::runtime_error>("FileSystem: Path or file a.fits not found, searched in:\n/\n./\n$CFGPATH ()\nextra",
                                   [] { FindFileOrThrow("a.fits", {"extra"}); });
}

TEST_F(FindFileTest, MessageShowsDirectoriesAsTheyAreGiven) {
  const std::string places = "FileSystem: Path or file a.fits not found, searched in:\n/\n./\n$CFGPATH ()\n";
  ExpectThrows<std::runtime_error>(places + "x\nx\n\nx", [] { FindFileOrThrow("a.fits", {"x", "x", "", "x"}); });
  ExpectThrows<std::runtime_error>(places + "\nx", [] { FindFileOrThrow("a.fits", {"", "x"}); });
}

}  // namespace
}  // namespace quen::common::FileSystem
