#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "stream/layout.hpp"
#include "stream/src/parts.hpp"
#include "stream/test/streams.hpp"

// A frame is published in a process that is stopped after each of its instructions; what has changed in the file by
// then is the order in which all readers see it.

namespace quen::stream {
namespace {

using testing::kAnyTime;
using testing::SmallStream;
using testing::StreamFolder;

/// A file in memory, to be looked at.
class MappedFile {
 public:
  explicit MappedFile(const std::string& path) : size_(std::filesystem::file_size(path)) {
    const int file = open(path.c_str(), O_RDWR);
    memory_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
  }
  ~MappedFile() { munmap(memory_, size_); }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  MappedFile(MappedFile&&) = delete;
  MappedFile& operator=(MappedFile&&) = delete;

  [[nodiscard]] const Metadata& Head() const { return *static_cast<const Metadata*>(memory_); }
  /// The bytes of a part.
  [[nodiscard]] std::string Bytes(std::size_t begin, std::size_t end) const {
    return std::string(static_cast<const char*>(memory_) + begin, end - begin);
  }

 private:
  std::size_t size_;
  void* memory_ = nullptr;
};

/// Lets a stopped process do one instruction. False where it has ended.
bool Step(pid_t child) {
  int status = 0;
  return ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
         WIFSTOPPED(status);
}

TEST(OrderOfStores, IsThatOfTheLayout) {
  const StreamFolder folder;
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    Writer writer(SmallStream());
    const std::vector<std::int16_t> pixels(15, 0x0101);
    const std::vector<KeywordValue> values = {std::int64_t{41}, 0.125, std::string("text")};
    if (raise(SIGSTOP) != 0) _exit(1);
    writer.Publish(gsl::as_bytes(gsl::span(pixels)), kAnyTime, values);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSTOPPED(status)) << "no process may be traced here";

  const MappedFile file(folder / "test.im.shm");
  const Parts parts = PartsOf(file.Head()).value();
  struct Watched {
    std::string what;
    std::function<std::string()> look;
    std::string last;
  };
  std::vector<Watched> watched = {
      {"write", [&] { return std::to_string(file.Head().write); }, ""},
      {"pixels", [&] { return file.Bytes(parts.pixels, parts.keywords); }, ""},
      {"keywords", [&] { return file.Bytes(parts.keywords, parts.semaphores); }, ""},
      {"written", [&] { return std::to_string(file.Head().written.tv_sec); }, ""},
      {"acquired", [&] { return std::to_string(file.Head().acquired.tv_sec); }, ""},
      {"cnt0", [&] { return std::to_string(file.Head().cnt0); }, ""},
      {"semaphores", [&] { return file.Bytes(parts.semaphores, parts.log_semaphore); }, ""},
      {"log semaphore", [&] { return file.Bytes(parts.log_semaphore, parts.reader_pids); }, ""},
  };
  for (Watched& one : watched) one.last = one.look();

  std::vector<std::string> order;
  while (Step(child)) {
    for (Watched& one : watched) {
      const std::string now = one.look();
      if (now == one.last) continue;
      one.last = now;
      if (order.empty() || order.back() != one.what) order.push_back(one.what);
    }
  }
  EXPECT_EQ(order, (std::vector<std::string>{"write", "pixels", "keywords", "written", "acquired", "cnt0", "write",
                                             "semaphores", "log semaphore"}));
}

}  // namespace
}  // namespace quen::stream
