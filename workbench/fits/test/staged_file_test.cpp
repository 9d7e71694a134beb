#include "workbench/fits/staged_file.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "workbench/fits/src/leftovers.hpp"

namespace quen::workbench {
namespace {

using quen::testing::ExpectThrows;
using quen::testing::TempDir;
using quen::testing::WriteText;

std::string Text(const std::string& path) {
  const std::vector<char> bytes = testing::Bytes(path);
  return {bytes.begin(), bytes.end()};
}

unsigned int Mode(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & ALLPERMS;
}

void WriteAll(const std::vector<std::string>& names) {
  StagedFiles files(names);
  for (const std::string& name : names) files.Give(name, "new");
  files.Commit();
}

class Staged : public ::testing::Test {
 protected:
  [[nodiscard]] std::string File(const std::string& name) const { return folder_ / name; }

  TempDir folder_;
};

TEST_F(Staged, FilesTakeTheirPlacesWhenCommitted) {
  WriteText(File("a"), "old");
  StagedFiles files({File("a"), "", File("deep/er/b")});
  files.GiveAll({"new a", "new b"});
  EXPECT_EQ(Text(File("a")), "old");
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 1U);
  files.Commit();
  EXPECT_EQ(Text(File("a")), "new a");
  EXPECT_EQ(Text(File("deep/er/b")), "new b");
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 4U);
  EXPECT_EQ(files.Names(), (std::vector<std::string>{File("a"), File("deep/er/b")}));
}

TEST_F(Staged, SymbolicLinksAreFollowedAndStay) {
  std::filesystem::create_directory(File("elsewhere"));
  WriteText(File("elsewhere/a"), "old");
  std::filesystem::create_symlink("elsewhere/a", File("one"));
  std::filesystem::create_symlink(File("one"), File("two"));
  std::filesystem::create_symlink("elsewhere/b", File("dangling"));
  WriteAll({File("two"), File("dangling")});
  EXPECT_EQ(Text(File("elsewhere/a")), "new");
  EXPECT_EQ(Text(File("elsewhere/b")), "new");
  for (const char* const link : {"one", "two", "dangling"}) {
    EXPECT_TRUE(std::filesystem::is_symlink(File(link))) << link;
  }
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 6U);
  std::filesystem::create_symlink(File("round"), File("round"));
  ExpectThrows<std::runtime_error>("cannot write " + File("round") + ": Too many levels of symbolic links",
                                   [&] { StagedFiles({File("round")}); });
}

TEST_F(Staged, AsManyLinksAreFollowedAsTheSystemFollows) {
  constexpr int kMost = 40;
  for (int link = 0; link <= kMost; ++link) {
    std::filesystem::create_symlink(link == 0 ? "a" : std::to_string(link - 1), File(std::to_string(link)));
  }
  WriteAll({File(std::to_string(kMost - 1))});
  EXPECT_EQ(Text(File("a")), "new");
  EXPECT_THROW(StagedFiles({File(std::to_string(kMost))}), std::runtime_error);
}

TEST_F(Staged, ModeOfAnExistingFileIsKeptAndTheUmaskIsForNewOnes) {
  const mode_t before = umask(027);
  for (const unsigned int mode : {0600U, 0666U, 0444U, 0751U, 06711U}) {
    WriteText(File("a"), "old");
    chmod(File("a").c_str(), mode);
    WriteAll({File("a")});
    EXPECT_EQ(Mode(File("a")), mode);
    std::filesystem::remove(File("a"));
  }
  WriteAll({File("new")});
  EXPECT_EQ(Mode(File("new")), 0640U);
  umask(before);
}

TEST_F(Staged, OwnerOfAnExistingFileIsKeptWhereTheUserMayGiveFilesAway) {
  WriteText(File("a"), "old");
  if (chown(File("a").c_str(), 1234, 5678) != 0) GTEST_SKIP() << "this user may not";
  chmod(File("a").c_str(), 04751);
  WriteAll({File("a")});
  struct stat status {};
  stat(File("a").c_str(), &status);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 5678U);
  EXPECT_EQ(Mode(File("a")), 04751U);
}

using StagedDeathTest = Staged;

TEST_F(StagedDeathTest, FileOfAnotherOwnerIsTheUsersWhoMayNotGiveItAway) {
  WriteText(File("a"), "old");
  chmod(File("a").c_str(), 06755);
  chmod(folder_.Path().c_str(), 0777);
  if (geteuid() != 0) GTEST_SKIP() << "only root becomes another user";
  const auto as_another = [&] {
    if (setgid(5678) != 0 || setuid(1234) != 0) _exit(1);
    WriteAll({File("a")});
    _exit(0);
  };
  EXPECT_EXIT(as_another(), ::testing::ExitedWithCode(0), "");
  struct stat status {};
  stat(File("a").c_str(), &status);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(Mode(File("a")), 0755U);  // its programs would run as somebody else
  EXPECT_EQ(Text(File("a")), "new");
}

TEST_F(Staged, WhatIsThereIsWrittenToIfItIsNoFile) {
  ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
  const int reader = open(File("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  WriteAll({File("pipe"), "/dev/null"});
  std::string text(10, ' ');
  text.resize(static_cast<std::size_t>(read(reader, text.data(), text.size())));
  close(reader);
  EXPECT_EQ(text, "new");
  EXPECT_TRUE(std::filesystem::is_fifo(File("pipe")));
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  ExpectThrows<std::runtime_error>("cannot write /dev/full: No space left on device", [&] {
    WriteAll({"/dev/full", File("a")});
  });
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 1U);
}

TEST_F(Staged, DescriptorOfTheProcessIsWrittenToWhereItLeads) {
  WriteText(File("a"), "old and longer");
  const int file = open(File("a").c_str(), O_WRONLY | O_CLOEXEC);
  WriteAll({"/dev/fd/" + std::to_string(file)});
  struct stat opened {};
  fstat(file, &opened);
  struct stat named {};
  stat(File("a").c_str(), &named);
  close(file);
  EXPECT_EQ(opened.st_ino, named.st_ino) << "it was replaced";
  EXPECT_EQ(Text(File("a")), "new");
}

TEST_F(Staged, NamesThatCannotBeWrittenAreRefusedBeforeAnyWork) {
  WriteText(File("file"), "old");
  std::filesystem::create_directory(File("folder"));
  std::filesystem::create_hard_link(File("file"), File("same"));
  std::filesystem::create_symlink("file", File("link"));
  const auto refuses = [&](const std::vector<std::string>& names, const std::string& sentence) {
    ExpectThrows<std::runtime_error>(sentence, [&] { StagedFiles staged(names); });
  };
  refuses({File("a"), File("folder")},
          "cannot write " + File("folder") + ": it names a folder; give the name of a file");
  refuses({File("none/")}, "cannot write " + File("none/") + ": it names a folder; give the name of a file");
  refuses({File("file/a")}, "cannot make " + File("file") + ": Not a directory");
  refuses({File("file/a/b")}, "cannot make " + File("file/a") + ": Not a directory");
  ExpectThrows<std::runtime_error>("expected the name of a file to write to, found an empty one",
                                   [] { FindTarget(""); });
  for (const auto& [one, other] : std::vector<std::pair<std::string, std::string>>{{"new", "new"},
                                                                                   {"new", "folder/../new"},
                                                                                   {"file", "link"},
                                                                                   {"file", "same"},
                                                                                   {"a", "a/b"},
                                                                                   {"a/b/c", "a"}}) {
    EXPECT_THROW(StagedFiles({File(one), File(other)}), std::runtime_error) << one << " and " << other;
  }
  refuses({File("new"), File("new")},
          "cannot write both " + File("new") + " and " + File("new") + ": give each output a file of its own");
  EXPECT_THROW(StagedFiles({File(std::string(300, 'x'))}), std::runtime_error);
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 4U);
}

TEST_F(Staged, InputIsNotReplacedUnderAnyName) {
  WriteText(File("file"), "old");
  std::filesystem::create_hard_link(File("file"), File("same"));
  std::filesystem::create_symlink("file", File("link"));
  const InputFile input(File("file"));
  for (const char* const name : {"file", "same", "link"}) {
    const StagedFiles files({File("new"), File(name)});
    ExpectThrows<std::runtime_error>("cannot write " + File(name) + ": it is the same file as " + File("file") +
                                         ", which is read; give the output another name",
                                     [&] { files.RefuseToReplace(input); });
  }
  StagedFiles({File("new")}).RefuseToReplace(input);
  StagedFiles({"/dev/null"}).RefuseToReplace(InputFile("/dev/null"));
}

TEST_F(Staged, RenameThatFailsLeavesAllAsItWas) {
  WriteText(File("a"), "old");
  StagedFiles files({File("a"), File("b"), File("made/c"), File("d")});
  files.GiveAll({"new", "new", "new", "new"});
  std::filesystem::create_directory(File("d"));  // since the names were looked at
  ExpectThrows<std::runtime_error>("cannot write " + File("d") + ": File exists", [&] { files.Commit(); });
  EXPECT_EQ(Text(File("a")), "old");
  EXPECT_FALSE(std::filesystem::exists(File("b")));
  EXPECT_FALSE(std::filesystem::exists(File("made/c")));
}

TEST_F(Staged, FoldersMadeForFilesThatFailGoAgain) {
  {
    StagedFiles files({File("x/y/a"), "/dev/full"});
    files.GiveAll({"new", "new"});
    EXPECT_THROW(files.Commit(), std::runtime_error);
  }
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 0U);
}

TEST_F(Staged, PartsGoToTheirPlacesInAnyOrder) {
  WriteText(File("a"), "old and longer");
  ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
  const Descriptor reader(open(File("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  StagedFiles files({File("a"), File("deep/b"), File("pipe")});
  for (const char* const name : {"a", "deep/b", "pipe"}) {
    files.GiveAt(File(name), "world", 6);
    files.GiveAt(File(name), "hello ", 0);
  }
  EXPECT_EQ(Text(File("a")), "old and longer");
  files.Commit();
  EXPECT_EQ(Text(File("a")), "hello world");
  EXPECT_EQ(Text(File("deep/b")), "hello world");
  std::string text(20, ' ');
  text.resize(static_cast<std::size_t>(read(reader.Number(), text.data(), text.size())));
  EXPECT_EQ(text, "hello world");
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 4U);
}

TEST_F(Staged, PartsOfWhatIsNotCommittedGoAgainWithTheirFolders) {
  WriteText(File("a"), "old");
  {
    StagedFiles files({File("a"), File("x/y/b")});
    files.GiveAt(File("a"), "new", 0);
    files.GiveAt(File("x/y/b"), "new", 0);
  }
  EXPECT_EQ(Text(File("a")), "old");
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 1U);
}

// --- Leftovers

TEST_F(Staged, LeftoversOfKilledRunsAreRemovedAndNothingElse) {
  const std::string dead = ".quen-shs-0123456789abcdef0123456789abcdef.part";
  const std::vector<std::string> others = {
      ".quen-shs-0123456789abcdef0123456789abcde.part",   ".quen-shs-0123456789abcdef0123456789abcdeg.part",
      "quen-shs-0123456789abcdef0123456789abcdef.part",   "a.part",
      ".quen-shs-0123456789abcdef0123456789abcdef.part~", ".quen-shs-0123456789ABCDEF0123456789abcdef.part",
      ".quen-ssh-0123456789abcdef0123456789abcdef.part",  ".quen-shs-0123456789abcdef0123456789abcdef.trap",
      ".quen-shs-0123456789abcdef0123456789abcdef0.part"};
  for (const std::string& name : others) WriteText(File(name), "");
  WriteText(File(dead), "half");
  const std::vector<std::string> no_files = {".quen-shs-00000000000000000000000000000001.part",
                                             ".quen-shs-00000000000000000000000000000002.part",
                                             ".quen-shs-00000000000000000000000000000003.part"};
  ASSERT_EQ(mkfifo(File(no_files[0]).c_str(), 0600), 0);
  std::filesystem::create_symlink("a", File(no_files[1]));
  std::filesystem::create_directory(File(no_files[2]));
  UnfinishedFile alive = MakeUnfinished(folder_.Path(), 0600);
  WriteAll({File("a")});
  EXPECT_FALSE(std::filesystem::exists(File(dead)));
  EXPECT_TRUE(std::filesystem::exists(alive.path)) << "somebody is at work on it";
  for (const std::string& name : others) EXPECT_TRUE(std::filesystem::exists(File(name))) << name;
  alive.file = Descriptor();
  WriteAll({File("a")});
  EXPECT_FALSE(std::filesystem::exists(alive.path));
  for (const std::string& name : no_files) EXPECT_TRUE(std::filesystem::exists(File(name))) << name;
}

TEST_F(Staged, WhatWasReplacedIsNoLeftoverAsLongAsItCanComeBack) {
  WriteText(File("a"), "old");
  StagedFile file(FindTarget(File("a")));
  file.Write("new");
  file.TakePlace();
  EXPECT_EQ(Text(File("a")), "new");
  RemoveLeftovers(folder_.Path());
  EXPECT_TRUE(file.Undo());
  EXPECT_EQ(Text(File("a")), "old");
}

TEST_F(Staged, UnfinishedFilesHaveNamesOfTheirOwn) {
  const auto one = MakeUnfinished(folder_.Path(), 0600);
  const auto other = MakeUnfinished(folder_.Path(), 0600);
  EXPECT_NE(one.path, other.path);
  EXPECT_EQ(Mode(one.path), 0600U);
  EXPECT_FALSE(Locked(one.path).IsOpen());
}

}  // namespace
}  // namespace quen::workbench
