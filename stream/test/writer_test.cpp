#include "stream/writer.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numeric>

#include "common/logging/logging.hpp"
#include "stream/names.hpp"
#include "stream/test/streams.hpp"
#include "testing/allocations.hpp"
#include "testing/exceptions.hpp"
#include "testing/process.hpp"
#include "testing/recording_appender.hpp"

namespace quen::stream {
namespace {

using testing::ExpectThrows;
using testing::kAnyTime;
using testing::PublishEqual;
using testing::Quoted;
using testing::SmallStream;
using testing::StreamFolder;

std::string Described(const std::string& path) {
  const testing::Outcome outcome = testing::RunPlainStream("describe " + Quoted(path));
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  return outcome.out;
}

ino_t InodeOf(const std::string& path) {
  struct stat status = {};
  stat(path.c_str(), &status);
  return status.st_ino;
}

/// Runs `action` in a process of its own, which ends at once afterwards, without destructors.
template <typename Action>
int StatusOfChild(Action action) {
  const pid_t child = fork();
  if (child == 0) {
    action();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

TEST(Writer, NewStreamIsReadByAPlainReader) {
  const StreamFolder folder;
  const Writer writer(SmallStream());
  const std::string pid = std::to_string(getpid());
  EXPECT_EQ(Described(folder / "test.im.shm"),
            "version 2.00\nname test\naxes 2 5 3 0\nelements 15\ntype 4\nimagetype 0\ncreated within a minute True\n"
            "acquired 0 0\nwritten within a minute False\ncreator " +
                pid +
                " owner 0\nshared 1 location -1 status 0\ninode is the file's True\nflag 0 logflag 0\nsem 10 traces "
                "10\ncounters 0 0 0\nwrite 0 keywords 3\nring 0 0 0\nimdatamemsize 30\ngraphics {0}\n"
                "keyword FRAME L -1 0 counted from 0\nkeyword NOISE D 2.5 0 \nkeyword WHERE S here 0 \n"
                "semReadPID -1\nsemWritePID -1\nsemctrl 0\nsemstatus 0\nposts 0\nlog posts 0\ntrace semaphores -1\n"
                "pixels 0 0 0\nsize 1952\n");
}

TEST(Writer, FrameIsReadByAPlainReader) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  std::vector<std::int16_t> pixels(15);
  std::iota(pixels.begin(), pixels.end(), std::int16_t{-7});
  const std::vector<KeywordValue> values = {std::int64_t{41}, 0.125, std::string("sixteen bytes on")};
  writer.Publish(gsl::as_bytes(gsl::span(pixels)), kAnyTime, values);
  writer.Publish(gsl::as_bytes(gsl::span(pixels)), kAnyTime);
  const std::string described = Described(folder / "test.im.shm");
  const std::string pid = std::to_string(getpid());
  for (const std::string& line :
       {std::string("acquired 1700000000 123"), std::string("written within a minute True"),
        std::string("counters 2 0 0"), std::string("write 0 keywords 3"),
        std::string("keyword FRAME L 41 1 counted from 0"), std::string("keyword NOISE D 0.125 1 "),
        std::string("keyword WHERE S sixteen bytes on 1 "), "semWritePID " + pid, std::string("posts 2"),
        std::string("log posts 2"), std::string("pixels -7 -6 7")}) {
    EXPECT_NE(described.find("\n" + line + "\n"), std::string::npos) << line << " is not in\n" << described;
  }
}

TEST(Writer, StreamOfTheSensorHasItsSize) {
  const StreamFolder folder;
  const Writer writer({.name = "sensor", .size = {840, 816}});
  EXPECT_EQ(std::filesystem::file_size(folder / "sensor.im.shm"), 1'372'416);
}

TEST(Writer, SemaphoresHoldTenPostsAtTheMost) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  for (int i = 0; i < 25; ++i) PublishEqual(writer, 1);
  const std::string described = Described(folder / "test.im.shm");
  EXPECT_NE(described.find("\nposts 10\nlog posts 10\n"), std::string::npos) << described;
}

TEST(Writer, FileIsForEveryoneWhateverTheUmask) {
  const StreamFolder folder;
  const mode_t old = umask(077);
  const Writer writer(SmallStream());
  umask(old);
  struct stat status = {};
  ASSERT_EQ(stat(writer.Path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0666);
}

TEST(Writer, RoomIsReserved) {
  const StreamFolder folder;
  const Writer writer({.name = "sensor", .size = {840, 816}});
  struct stat status = {};
  ASSERT_EQ(stat(writer.Path().c_str(), &status), 0);
  EXPECT_GE(status.st_blocks * 512, status.st_size);
}

TEST(Writer, UnlinksItsFileAtTheEnd) {
  const StreamFolder folder;
  { const Writer writer(SmallStream()); }
  EXPECT_EQ(testing::EntriesBelow(folder.Path()), 0);
}

TEST(Writer, LeavesAnothersFileAtTheEnd) {
  const StreamFolder folder;
  {
    const Writer writer(SmallStream());
    std::filesystem::remove(writer.Path());
    std::ofstream(writer.Path()) << "another's";
  }
  EXPECT_TRUE(std::filesystem::exists(folder / "test.im.shm"));
}

TEST(Writer, LivingOneIsNotReplaced) {
  const StreamFolder folder;
  const Writer writer(SmallStream());
  const ino_t inode = InodeOf(writer.Path());
  ExpectThrows<std::runtime_error>(
      "a living program writes the stream " + writer.Path() + "; end it, or choose another name",
      [] { const Writer second(SmallStream()); });
  EXPECT_EQ(InodeOf(writer.Path()), inode);
}

TEST(Writer, DeadOnesStreamIsReplacedByAnotherFile) {
  const StreamFolder folder;
  const std::string path = folder / "test.im.shm";
  StatusOfChild([] {
    Writer writer(SmallStream());
    PublishEqual(writer, 7);
    kill(getpid(), SIGKILL);
  });
  ASSERT_TRUE(std::filesystem::exists(path));
  const int old = open(path.c_str(), O_RDWR);  // so that its inode is not used again
  const ino_t inode = InodeOf(path);
  const Writer writer(SmallStream());
  EXPECT_NE(InodeOf(path), inode);
  EXPECT_EQ(writer.Count(), 0);
  struct stat status = {};
  fstat(old, &status);
  EXPECT_EQ(status.st_size, 1952) << "those who still have the old file mapped end by SIGBUS where it is cut";
  close(old);
}

TEST(Writer, HalfMadeStreamOfADeadOneIsReplaced) {
  const StreamFolder folder;
  std::ofstream(folder / "test.im.shm").close();
  Writer writer(SmallStream());
  PublishEqual(writer, 3);
  EXPECT_EQ(writer.Count(), 1);
}

TEST(Writer, WhatIsNoFileIsLeft) {
  const StreamFolder folder;
  const std::string path = folder / "test.im.shm";
  const std::string text = path + " is no file: a stream of this name cannot be made; choose another name";
  std::filesystem::create_directory(path);
  ExpectThrows<std::runtime_error>(text, [] { const Writer writer(SmallStream()); });
  std::filesystem::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
  ExpectThrows<std::runtime_error>(text, [] { const Writer writer(SmallStream()); });
  EXPECT_TRUE(std::filesystem::is_fifo(path));
}

TEST(Writer, WithoutRoomNothingIsLeft) {
  const StreamFolder folder;
  const int status = StatusOfChild([&folder] {
    EXPECT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    const rlimit limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    ExpectThrows<std::runtime_error>("cannot reserve 1952 bytes for " + folder / "test.im.shm" + ": File too large",
                                     [] { const Writer writer(SmallStream()); });
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(testing::EntriesBelow(folder.Path()), 0);
}

TEST(Writer, CounterJumpsOrStandsStillOnce) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  writer.SetNextStep(7);
  PublishEqual(writer, 1);
  EXPECT_EQ(writer.Count(), 7);
  PublishEqual(writer, 1);
  EXPECT_EQ(writer.Count(), 8);
  writer.SetNextStep(0);
  PublishEqual(writer, 1);
  EXPECT_EQ(writer.Count(), 8);
  PublishEqual(writer, 1);
  EXPECT_EQ(writer.Count(), 9);
}

TEST(Writer, TellsHowManySemaphoresLivingReadersHave) {
  const StreamFolder folder;
  const Writer writer(SmallStream());
  StatusOfChild([] {
    const Reader reader("test");
    kill(getpid(), SIGKILL);
  });
  EXPECT_EQ(writer.SemaphoresTaken(), 0);
  const Reader first("test");
  const Reader second("test");
  EXPECT_EQ(writer.SemaphoresTaken(), 2);
}

TEST(Writer, PublishingAllocatesNothing) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  const std::vector<std::int16_t> pixels(15);
  const std::vector<KeywordValue> values = {std::int64_t{41}, 0.125, std::string("text")};
  const std::size_t before = testing::Allocations();
  writer.Publish(gsl::as_bytes(gsl::span(pixels)), kAnyTime, values);
  EXPECT_EQ(testing::Allocations(), before);
}

TEST(Writer, LeaksNoDescriptor) {
  const StreamFolder folder;
  const std::size_t before = testing::OpenDescriptors();
  { const Writer writer(SmallStream()); }
  EXPECT_EQ(testing::OpenDescriptors(), before);
}

TEST(Writer, ConfigurationIsChecked) {
  const StreamFolder folder;
  const auto expect = [](const std::string& text, const StreamConfig& config) {
    ExpectThrows<std::invalid_argument>(text, [&] { const Writer writer(config); });
  };
  expect("Writer: type must be one of PixelType, found 0", {.name = "t", .type = PixelType{0}, .size = {1}});
  expect("Writer: type must be one of PixelType, found 14", {.name = "t", .type = PixelType{14}, .size = {1}});
  expect("Writer: size must have 1 to 3 axes, found 0", {.name = "t", .size = {}});
  expect("Writer: size must have 1 to 3 axes, found 4", {.name = "t", .size = {1, 1, 1, 1}});
  expect("Writer: size must be at least 1 along each axis and at most 10000000000 pixels in all, found 0 along one",
         {.name = "t", .size = {3, 0}});
  expect(
      "Writer: size must be at least 1 along each axis and at most 10000000000 pixels in all, found 4294967295 along "
      "one",
      {.name = "t", .size = {1, 3, 4294967295U}});
  expect("Writer: keywords must be at most 65535, found 65536",
         {.name = "t", .size = {1}, .keywords = std::vector<Keyword>(65536, {"A", 1.0})});
  expect("the name of a keyword must have 1 to 15 bytes, found 0 in ''",
         {.name = "t", .size = {1}, .keywords = {{"", 1.0}}});
  expect("the name of a keyword must have 1 to 15 bytes, found 16 in 'sixteen bytes on'",
         {.name = "t", .size = {1}, .keywords = {{"sixteen bytes on", 1.0}}});
  expect("the text of keyword A must have 0 to 16 bytes, found 17 in 'seventeen bytes .'",
         {.name = "t", .size = {1}, .keywords = {{"A", std::string("seventeen bytes .")}}});
  expect("the comment of keyword A must have 0 to 79 bytes, found 80 in '" + std::string(80, 'c') + "'",
         {.name = "t", .size = {1}, .keywords = {{"A", 1.0, std::string(80, 'c')}}});
  EXPECT_EQ(testing::EntriesBelow(folder.Path()), 0);
}

TEST(Writer, FrameIsChecked) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  const std::vector<std::byte> pixels(30);
  const auto expect = [&](const std::string& text, std::size_t bytes, const std::vector<KeywordValue>& values) {
    ExpectThrows<std::invalid_argument>(
        text, [&] { writer.Publish(gsl::span<const std::byte>(pixels).first(bytes), kAnyTime, values); });
  };
  expect("Publish: pixels must have 30 bytes, found 29", 29, {});
  expect("Publish: values must be one for each of 3 keywords, or none, found 1", 30, {1.0});
  expect("Publish: the value of keyword FRAME must be of the type that it began with", 30,
         {1.0, 1.0, std::string("here")});
  expect("the text of keyword WHERE must have 0 to 16 bytes, found 17 in 'seventeen bytes .'", 30,
         {std::int64_t{1}, 1.0, std::string("seventeen bytes .")});
  EXPECT_EQ(writer.Count(), 0);
}

TEST(StreamNames, AreCheckedBeforeAnythingIsMade) {
  const StreamFolder folder;
  const auto text = [](const std::string& name) {
    return "the name of a stream must have 1 to 79 bytes, no slash and no zero byte, found '" + name + "'";
  };
  for (const std::string& name : {std::string(), std::string("a/b"), std::string(80, 'n')}) {
    ExpectThrows<std::invalid_argument>(text(name), [&] { PathOf(name); });
  }
  EXPECT_THROW(PathOf(std::string("a\0b", 3)), std::invalid_argument);
  EXPECT_EQ(PathOf(" .odd \"näme'\n"), folder / " .odd \"näme'\n.im.shm");
  EXPECT_EQ(PathOf(std::string(79, 'n')), folder / (std::string(79, 'n') + ".im.shm"));
}

TEST(StreamNames, PathHasAtMost199Bytes) {
  const testing::TempDir parent;
  const std::string folder =
      parent / std::string(199 - parent.Path().size() - 1 - std::string("/a.im.shm").size(), 'f');
  std::filesystem::create_directory(folder);
  const testing::ScopedVariable variable("MILK_SHM_DIR", folder);
  EXPECT_EQ(PathOf("a").size(), 199);
  ExpectThrows<std::invalid_argument>(
      "the path of a stream must have at most 199 bytes, found 200 in '" + folder + "/ab.im.shm'",
      [] { PathOf("ab"); });
}

TEST(StreamNames, FolderThatCannotBeOpenedIsPassedOverWithAWarning) {
  const testing::TempDir folder;
  const testing::LogListener log(common::GetLogger());
  const std::string other = std::filesystem::is_directory("/milk/shm") ? "/milk/shm" : "/tmp";
  std::ofstream(folder / "file").close();
  for (const std::string& wanted : {folder / "none", folder / "file", std::string()}) {
    const testing::ScopedVariable variable("MILK_SHM_DIR", wanted);
    EXPECT_EQ(Folder(), other);
    ASSERT_FALSE(log.Records().empty());
    EXPECT_EQ(log.Records().back().message,
              "MILK_SHM_DIR names " + wanted + ", which is no folder that can be opened; it is passed over");
  }
  EXPECT_EQ(log.Records().size(), 3);
  const testing::ScopedVariable variable("MILK_SHM_DIR", std::nullopt);
  EXPECT_EQ(Folder(), other);
  EXPECT_EQ(log.Records().size(), 3) << "without the variable there is nothing to be told";
}

}  // namespace
}  // namespace quen::stream
