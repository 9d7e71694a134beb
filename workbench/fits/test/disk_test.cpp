#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <utility>

#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/src/leftovers.hpp"
#include "workbench/fits/staged_file.hpp"

// What happens between the making of a file and its taking its place: this program's fsync, flock and getrandom stand
// in for the system's.

namespace quen::workbench {
namespace {

/// What a test does to a file at the next such call; forgotten as it is called.
struct Meanwhile {
  std::function<void(int descriptor)> synchronized;
  std::function<void()> locked;
  bool random_is_zero = false;
};

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the stand-ins have nowhere else to look.
Meanwhile g_meanwhile;

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's header has reserved ones.
extern "C" int fsync(int descriptor) {
  if (const auto action = std::exchange(g_meanwhile.synchronized, nullptr)) action(descriptor);
  return static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" int flock(int descriptor, int operation) noexcept {
  if (const auto action = std::exchange(g_meanwhile.locked, nullptr)) action();
  return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

extern "C" ssize_t getrandom(void* data, std::size_t size, unsigned int flags) {
  if (!std::exchange(g_meanwhile.random_is_zero, false)) return syscall(SYS_getrandom, data, size, flags);
  std::memset(data, 0, size);
  return static_cast<ssize_t>(size);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

using quen::testing::WriteText;

class Disk : public ::testing::Test {
 protected:
  Disk() { WriteText(File("a"), "old"); }
  void TearDown() override { g_meanwhile = {}; }

  [[nodiscard]] std::string File(const std::string& name) const { return folder_ / name; }

  [[nodiscard]] std::string Text(const std::string& name) const {
    const std::vector<char> bytes = testing::Bytes(File(name));
    return {bytes.begin(), bytes.end()};
  }

  void Replace(const std::string& name) const {
    StagedFiles files({File(name)});
    files.Give(File(name), "new");
    files.Commit();
  }

  testing::TempDir folder_;
};

TEST_F(Disk, IsAskedForItsWordWhileTheOldFileIsThere) {
  bool is_asked = false;
  g_meanwhile.synchronized = [&](int) {
    is_asked = true;
    EXPECT_EQ(Text("a"), "old");
  };
  Replace("a");
  EXPECT_TRUE(is_asked);
  EXPECT_EQ(Text("a"), "new");
}

TEST_F(Disk, FileThatComesBackOtherwiseTakesNoPlace) {
  const std::vector<std::function<void(int)>> damages = {
      [](int file) { EXPECT_EQ(pwrite(file, "N", 1, 0), 1); },  // another byte
      [](int file) { EXPECT_EQ(ftruncate(file, 2), 0); },       // one less
      [](int file) { EXPECT_EQ(pwrite(file, "s", 1, 3), 1); },  // one more
  };
  for (std::size_t k = 0; k < damages.size(); ++k) {
    g_meanwhile.synchronized = damages[k];
    testing::ExpectThrows<std::runtime_error>(
        "cannot write " + File("a") + ": read back, it is not whole; look after the disk and run this again",
        [&] { Replace("a"); });
    EXPECT_EQ(Text("a"), "old") << k;
    EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 1U) << k;
  }
}

TEST_F(Disk, ContentOfAPrivateFileIsNeverForOthers) {
  const mode_t before = umask(0);
  chmod(File("a").c_str(), 0600);
  struct stat status {};
  g_meanwhile.synchronized = [&](int file) { fstat(file, &status); };
  Replace("a");
  umask(before);
  EXPECT_EQ(status.st_mode & ALLPERMS, 0600U);
}

using DiskDeathTest = Disk;

TEST_F(DiskDeathTest, SignalThatComesAtLastLeavesTheOldFile) {
  const auto interrupt = [&] {
    NoteInterruptions();
    g_meanwhile.synchronized = [](int) { static_cast<void>(raise(SIGINT)); };
    try {
      Replace("a");
    } catch (const Interrupted&) {
      _exit(Text("a") == "old" ? 0 : 1);
    }
    _exit(2);
  };
  EXPECT_EXIT(interrupt(), ::testing::ExitedWithCode(0), "");
}

// --- Names of unfinished files

TEST_F(Disk, NameThatSomebodyHasTakenIsNotWrittenTo) {
  const std::string taken = ".quen-shs-" + std::string(32, '0') + ".part";
  WriteText(File("precious"), "old");
  std::filesystem::create_symlink("precious", File(taken));
  g_meanwhile.random_is_zero = true;
  Replace("a");
  EXPECT_FALSE(g_meanwhile.random_is_zero);
  EXPECT_EQ(Text("a"), "new");
  EXPECT_EQ(Text("precious"), "old");
  EXPECT_TRUE(std::filesystem::is_symlink(File(taken)));
}

TEST_F(Disk, FileThatIsTakenForALeftoverIsMadeAgain) {
  bool is_taken = false;
  g_meanwhile.locked = [&] {
    RemoveLeftovers(folder_.Path());
    is_taken = testing::EntriesBelow(folder_.Path()) == 1U;
  };
  Replace("a");
  EXPECT_TRUE(is_taken);
  EXPECT_EQ(Text("a"), "new");
}

}  // namespace
}  // namespace quen::workbench
