#include "stream/reader.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "stream/layout.hpp"
#include "stream/src/parts.hpp"
#include "stream/src/shared_file.hpp"
#include "stream/test/streams.hpp"
#include "testing/allocations.hpp"
#include "testing/exceptions.hpp"
#include "testing/process.hpp"

namespace quen::stream {
namespace {

using std::chrono::milliseconds;
using testing::ExpectThrows;
using testing::kAnyTime;
using testing::PixelsOf;
using testing::PublishEqual;
using testing::Quoted;
using testing::SmallStream;
using testing::StreamFolder;

constexpr auto kLong = std::chrono::seconds(30);  // beside what happens at once

/// Waits for a frame that comes at once: the limit is not what ends the waiting.
std::uint64_t WaitForOne(Reader& reader, std::uint64_t seen) {
  const auto begin = std::chrono::steady_clock::now();
  const std::uint64_t count = reader.Wait(seen, kLong);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kLong / 2) << "nobody woke the reader";
  return count;
}

/// As many as there are semaphores.
std::vector<std::unique_ptr<Reader>> TenReaders() {
  std::vector<std::unique_ptr<Reader>> readers(10);
  std::ranges::generate(readers, [] { return std::make_unique<Reader>("test"); });
  return readers;
}

/// Publishes a second frame when a process has published the first, and waits for it; it must end well then.
void ExpectIsWoken(pid_t process, Writer& writer) {
  while (writer.Count() == 0) std::this_thread::yield();
  std::this_thread::sleep_for(milliseconds(20));
  PublishEqual(writer, 2);
  int status = 1;
  waitpid(process, &status, 0);
  EXPECT_EQ(status, 0);
}

std::string ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Reader, ReadsWhatAWriterPublishes) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  const Reader reader("test");
  EXPECT_EQ(reader.Type(), PixelType::kInt16);
  EXPECT_EQ(reader.Size(), (std::vector<std::uint32_t>{5, 3}));
  EXPECT_EQ(reader.Bytes(), 30);
  EXPECT_EQ(reader.Count(), 0);

  std::vector<std::int16_t> pixels(15);
  pixels.back() = -3;
  const std::vector<KeywordValue> values = {std::int64_t{41}, 0.125, std::string("sixteen bytes on")};
  writer.Publish(gsl::as_bytes(gsl::span(pixels)), kAnyTime, values);
  FrameInfo info;
  EXPECT_EQ(PixelsOf(reader, info), pixels);
  EXPECT_EQ(info.count, 1);
  EXPECT_EQ(info.acquired.tv_sec, kAnyTime.tv_sec);
  EXPECT_EQ(info.acquired.tv_nsec, kAnyTime.tv_nsec);
  EXPECT_NEAR(static_cast<double>(info.written.tv_sec), static_cast<double>(Now().tv_sec), 60.0);
  EXPECT_EQ(info.values, values);
}

TEST(Reader, TellsTheKeywords) {
  const StreamFolder folder;
  const Writer writer(SmallStream());
  const auto keywords = Reader("test").Keywords();
  ASSERT_EQ(keywords.size(), 3);
  EXPECT_EQ(keywords[0].name, "FRAME");
  EXPECT_EQ(keywords[0].value, KeywordValue(std::int64_t{-1}));
  EXPECT_EQ(keywords[0].comment, "counted from 0");
  EXPECT_EQ(keywords[1].value, KeywordValue(2.5));
  EXPECT_EQ(keywords[2].value, KeywordValue(std::string("here")));
}

TEST(Reader, ReadsAStreamOfAnotherMaker) {
  const StreamFolder folder;
  ASSERT_EQ(testing::RunPlainStream("make " + Quoted(folder / "foreign.im.shm")).exit_code, 0);
  const Reader reader("foreign");
  EXPECT_EQ(reader.Type(), PixelType::kFloat);
  EXPECT_EQ(reader.Size(), (std::vector<std::uint32_t>{4, 3}));
  std::vector<float> pixels(12);
  FrameInfo info;
  ASSERT_TRUE(reader.Read(gsl::as_writable_bytes(gsl::span(pixels)), info));
  EXPECT_EQ(pixels[1], 0.5F);
  EXPECT_EQ(pixels[11], 5.5F);
  EXPECT_EQ(info.count, 7);
  EXPECT_EQ(info.acquired.tv_sec, 1234);
  ASSERT_EQ(reader.Keywords().size(), 1) << "one that is not in use is no keyword";
  EXPECT_EQ(reader.Keywords().front().name, "GAIN");
  EXPECT_EQ(info.values.front(), KeywordValue(0.25));
}

TEST(Reader, IsReadByAPlainReaderAtTheSameTime) {
  const StreamFolder folder;
  Writer writer({.name = "test", .size = {64, 64}});
  std::atomic<bool> is_over = false;
  std::thread publishing([&] {
    for (std::int16_t i = 1; !is_over; i = static_cast<std::int16_t>(i % 10000 + 1)) {
      PublishEqual(writer, i);
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  });
  const testing::Outcome outcome = testing::RunPlainStream("watch " + Quoted(writer.Path()) + " 100");
  is_over = true;
  publishing.join();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(std::ranges::count(outcome.out, '\n'), 100);
}

TEST(Reader, IsNotThereYet) {
  const StreamFolder folder;
  const std::string path = folder / "test.im.shm";
  ExpectThrows<NotThere>("there is no stream " + path, [] { const Reader reader("test"); });
  std::ofstream(path).close();
  ExpectThrows<NotThere>("the stream " + path + " is not complete yet", [] { const Reader reader("test"); });
  std::ofstream(path) << std::string(1952, '\0');
  ExpectThrows<NotThere>("the stream " + path + " is not complete yet", [] { const Reader reader("test"); });
}

TEST(Reader, RefusesWhatIsNoFile) {
  const StreamFolder folder;
  const std::string path = folder / "test.im.shm";
  ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
  ExpectThrows<std::runtime_error>(path + " is no stream: expected a file", [] { const Reader reader("test"); });
}

struct Damage {
  std::size_t offset;
  std::string bytes;
  std::string text;  ///< after the path
};

class DamagedStream : public ::testing::TestWithParam<Damage> {};

TEST_P(DamagedStream, IsRefusedWithASentence) {
  const StreamFolder folder;
  const Writer writer({.name = "good", .size = {5, 3}});
  std::string content = ContentOf(writer.Path());
  content.replace(GetParam().offset, GetParam().bytes.size(), GetParam().bytes);
  const std::string path = folder / "test.im.shm";
  std::ofstream(path, std::ios::binary) << content;
  ExpectThrows<std::runtime_error>(path + GetParam().text, [] { const Reader reader("test"); });
}

INSTANTIATE_TEST_SUITE_P(
    Fields, DamagedStream,
    ::testing::Values(
        Damage{0, "1.00", " is a stream of another layout: expected version 2.00, found another text"},
        Damage{4, "x", " is a stream of another layout: expected version 2.00, found another text"},
        Damage{32, {"\0", 1}, " is no stream of layout 2.00: expected a name, found 0"},
        Damage{112, {"\0", 1}, " is no stream of layout 2.00: expected 1 to 3 axes, found 0"},
        Damage{112, "\4", " is no stream of layout 2.00: expected 1 to 3 axes, found 4"},
        Damage{112, "\3", " is no stream of layout 2.00: expected at least 1 pixel along each axis, found 0"},
        Damage{240, "\xFE", " is no stream of layout 2.00: expected a location of at least -1, found -2"},
        Damage{136, {"\0", 1}, " is no stream of layout 2.00: expected a pixel type of 1 to 13, found 0"},
        Damage{136, "\16", " is no stream of layout 2.00: expected a pixel type of 1 to 13, found 14"},
        Damage{224, "\2", " is no stream of layout 2.00: expected a mark of shared memory of at most 1, found 2"},
        Damage{312, "\x21", " is no stream of layout 2.00: expected a size of 1576, found 1568"},
        Damage{290, "\1", " is no stream of layout 2.00: expected a size of 1696, found 1568"},
        Damage{292, "\1", " is no stream of layout 2.00: expected a size of 1648, found 1568"},
        Damage{260, "\13", " is no stream of layout 2.00: expected a size of 1632, found 1568"},
        Damage{312, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
               " is no stream of layout 2.00: expected a possible size, found 1568"},
        Damage{134, "\1", " is no stream of layout 2.00: expected at most 10000000000 pixels, found 281474976710671"},
        Damage{128, "\x0E",
               " is no stream of layout 2.00: expected the product of its axes as the number of pixels, "
               "found 14"},
        Damage{116, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
               " is no stream of layout 2.00: expected the product of its axes as the number of pixels, found 15"},
        Damage{136, "\5", " is no stream of layout 2.00: expected 60 bytes of pixels, found 30"}));

TEST(Reader, RefusesAFileOfMetadataAlone) {
  const StreamFolder folder;
  const std::string path = folder / "test.im.shm";
  std::ofstream(path) << std::string(384, '2');
  ExpectThrows<std::runtime_error>(path + " is no stream: expected more than 384 bytes, found 384",
                                   [] { const Reader reader("test"); });
}

TEST(Reader, WaitsForTheNextFrame) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  Reader reader("test");
  ASSERT_TRUE(reader.HasSemaphore());
  std::thread publishing([&] {
    std::this_thread::sleep_for(milliseconds(20));
    PublishEqual(writer, 5);
  });
  EXPECT_EQ(WaitForOne(reader, 0), 1);
  publishing.join();
  EXPECT_EQ(WaitForOne(reader, 0), 1) << "a frame that is there is not waited for";
}

TEST(Reader, OfAnotherProcessIsWoken) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  const pid_t child = fork();
  if (child == 0) {
    Reader reader("test");
    PublishEqual(writer, 1);  // tells that it is there
    _exit(WaitForOne(reader, 1) == 2 && !::testing::Test::HasFailure() ? 0 : 1);
  }
  ExpectIsWoken(child, writer);
}

TEST(Reader, OfTheLogIsWokenInAnotherProcess) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  const pid_t child = fork();
  if (child == 0) {
    const Descriptor opened(open(writer.Path().c_str(), O_RDWR));
    SharedFile file(opened, 1952, writer.Path());
    file.SetParts(PartsOf(file.Head()).value());
    PublishEqual(writer, 1);  // tells that it is there
    std::timespec limit = {};
    clock_gettime(CLOCK_MONOTONIC, &limit);
    limit.tv_sec += std::chrono::seconds(kLong).count();
    const bool took_first = sem_trywait(file.LogSemaphore()) == 0;
    _exit(took_first && sem_clockwait(file.LogSemaphore(), CLOCK_MONOTONIC, &limit) == 0 ? 0 : 1);
  }
  ExpectIsWoken(child, writer);
}

TEST(Reader, EmptiesItsSemaphoreOnAttaching) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  for (int i = 0; i < 5; ++i) PublishEqual(writer, 1);
  const Reader reader("test");
  const std::string described = testing::RunPlainStream("describe " + Quoted(writer.Path())).out;
  EXPECT_NE(described.find("\nposts 0 5\n"), std::string::npos) << described;
}

TEST(Reader, WaitsNoLongerThanItIsTold) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  for (int i = 0; i < 5; ++i) PublishEqual(writer, 1);  // their posts wake nobody who comes later
  Reader reader("test");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(reader.Wait(5, milliseconds(30)), 5);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(30));
  EXPECT_EQ(reader.Wait(5, milliseconds(-1)), 5);
}

TEST(Reader, OldPostsDoNotEndAWait) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  Reader reader("test");
  for (int i = 0; i < 5; ++i) PublishEqual(writer, 1);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(reader.Wait(5, milliseconds(30)), 5);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(30));
}

TEST(Reader, EleventhOneLooksAgainAndAgain) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  auto readers = TenReaders();
  Reader eleventh("test");
  EXPECT_TRUE(readers.back()->HasSemaphore());
  EXPECT_FALSE(eleventh.HasSemaphore());
  EXPECT_EQ(eleventh.SemaphoresTaken(), 10);
  std::thread publishing([&] {
    std::this_thread::sleep_for(milliseconds(20));
    PublishEqual(writer, 5);
  });
  EXPECT_EQ(WaitForOne(eleventh, 0), 1);
  publishing.join();
  for (const auto& reader : readers) EXPECT_EQ(WaitForOne(*reader, 0), 1);

  readers.erase(readers.begin() + 3);
  EXPECT_EQ(eleventh.SemaphoresTaken(), 9);
  EXPECT_TRUE(Reader("test").HasSemaphore()) << "what a reader gave back is free";
}

TEST(Reader, SemaphoreOfADeadReaderIsFree) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  std::array<int, 2> ready = {};
  ASSERT_EQ(pipe(ready.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    const auto readers = TenReaders();
    const char byte = 0;
    [[maybe_unused]] const auto written = write(ready[1], &byte, 1);
    readers.front()->Wait(0, kLong);
    _exit(0);
  }
  char byte = 1;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_FALSE(Reader("test").HasSemaphore());
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  Reader reader("test");
  EXPECT_TRUE(reader.HasSemaphore());
  EXPECT_EQ(reader.SemaphoresTaken(), 1);
  PublishEqual(writer, 1);
  EXPECT_EQ(WaitForOne(reader, 0), 1);
  close(ready[0]);
  close(ready[1]);
}

TEST(Reader, SeesThatItsStreamIsGoneOrMadeAnew) {
  const StreamFolder folder;
  auto writer = std::make_unique<Writer>(SmallStream());
  PublishEqual(*writer, 9);
  const Reader reader("test");
  EXPECT_FALSE(reader.IsReplaced());
  writer.reset();
  EXPECT_TRUE(reader.IsReplaced());
  FrameInfo info;
  EXPECT_EQ(PixelsOf(reader, info).front(), 9) << "the old frame stays";
  writer = std::make_unique<Writer>(SmallStream());
  EXPECT_TRUE(reader.IsReplaced());
  EXPECT_FALSE(Reader("test").IsReplaced());
}

TEST(Reader, FrameWhoseWriterDiedInTheMiddleIsNotWhole) {
  const StreamFolder folder;
  const Writer writer(SmallStream());
  const Reader reader("test");
  std::fstream(writer.Path(), std::ios::binary | std::ios::in | std::ios::out).seekp(288).put(1);
  std::vector<std::byte> pixels(30);
  FrameInfo info;
  EXPECT_FALSE(reader.Read(pixels, info));
}

TEST(Reader, ChecksTheRoomForPixels) {
  const StreamFolder folder;
  const Writer writer(SmallStream());
  const Reader reader("test");
  std::vector<std::byte> pixels(31);
  FrameInfo info;
  ExpectThrows<std::invalid_argument>("Read: pixels must have 30 bytes, found 31", [&] { reader.Read(pixels, info); });
}

TEST(Reader, ReadingAllocatesNothing) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  PublishEqual(writer, 1);
  Reader reader("test");
  std::vector<std::byte> pixels(30);
  FrameInfo info;
  reader.Read(pixels, info);
  const std::size_t before = testing::Allocations();
  WaitForOne(reader, 0);
  EXPECT_TRUE(reader.Read(pixels, info));
  EXPECT_EQ(testing::Allocations(), before);
}

TEST(Reader, WritesNothingBeyondThePixels) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  PublishEqual(writer, 0x0101);
  const Reader reader("test");
  for (const std::size_t shift : {std::size_t{0}, std::size_t{1}, std::size_t{7}}) {
    std::vector<std::byte> room(64, std::byte{0xEE});
    FrameInfo info;
    ASSERT_TRUE(reader.Read(gsl::span<std::byte>(room).subspan(shift, 30), info));
    EXPECT_EQ(std::ranges::count(room, std::byte{0x01}), 30);
    EXPECT_EQ(std::ranges::count(room, std::byte{0xEE}), 34);
  }
}

/// How many frames a reader takes as fast as it can, while they are published as fast as they can be.
void ExpectNoTornFrame(std::size_t frames) {
  const StreamFolder folder;
  Writer writer({.name = "test", .size = {37, 11}, .keywords = {{"FRAME", std::int64_t{0}}}});
  std::atomic<bool> is_over = false;
  std::thread publishing([&] {
    std::vector<std::int16_t> pixels(std::size_t{37} * 11);
    std::vector<KeywordValue> values = {std::int64_t{0}};
    while (!is_over) {
      const auto next = static_cast<std::int64_t>(writer.Count() + 1);
      std::ranges::fill(pixels, static_cast<std::int16_t>(next % 30000));
      values[0] = next;
      writer.Publish(gsl::as_bytes(gsl::span(pixels)), {next, next % 1000}, values);
    }
  });
  Reader reader("test");
  std::vector<std::int16_t> pixels(std::size_t{37} * 11);
  FrameInfo info;
  std::size_t torn = 0;
  while (WaitForOne(reader, 0) > 0 && frames > 0) {
    if (!reader.Read(gsl::as_writable_bytes(gsl::span(pixels)), info)) continue;
    --frames;
    const auto count = static_cast<std::int64_t>(info.count);
    const bool is_one_frame = std::ranges::all_of(pixels, [&](std::int16_t p) { return p == count % 30000; });
    if (!is_one_frame || info.acquired.tv_sec != count || info.values[0] != KeywordValue(count)) ++torn;
  }
  is_over = true;
  publishing.join();
  EXPECT_EQ(torn, 0);
}

TEST(ReaderThread, TakesNoTornFrame) { ExpectNoTornFrame(20'000); }

TEST(ReaderThread, OfEachOfTwoSeesEveryFrameThatIsWaitedFor) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  constexpr std::uint64_t kFrames = 200;
  const auto read = [&](std::atomic<std::uint64_t>& seen) {
    Reader reader("test");
    FrameInfo info;
    for (std::uint64_t i = 0; i < kFrames; ++i) {
      EXPECT_EQ(WaitForOne(reader, i), i + 1);
      EXPECT_EQ(PixelsOf(reader, info).front(), static_cast<std::int16_t>(i));
      seen = i + 1;
    }
  };
  std::atomic<std::uint64_t> first = 0;
  std::atomic<std::uint64_t> second = 0;
  std::thread one(read, std::ref(first));
  std::thread two(read, std::ref(second));
  for (std::uint64_t i = 0; i < kFrames; ++i) {
    PublishEqual(writer, static_cast<std::int16_t>(i));
    while (first <= i || second <= i) std::this_thread::yield();
  }
  one.join();
  two.join();
}

}  // namespace
}  // namespace quen::stream
