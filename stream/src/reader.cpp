#include "stream/reader.hpp"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <thread>

#include "stream/names.hpp"
#include "stream/src/keywords.hpp"
#include "stream/src/living_readers.hpp"
#include "stream/src/parts.hpp"
#include "stream/src/refusal.hpp"
#include "stream/src/shared_file.hpp"
#include "stream/src/words.hpp"

namespace quen::stream {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLongestWait = std::chrono::hours(24 * 365);  // which the clock can hold
constexpr auto kPause = std::chrono::microseconds(100);      // between two looks at cnt0, without a semaphore

Descriptor Opened(const std::string& path) {
  Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file.IsOpen()) return file;
  if (errno == ENOENT) throw NotThere("there is no stream " + path);
  throw RefusalOfSystem("cannot open " + path);
}

/// Of a regular file, which is long enough for more than metadata.
std::size_t SizeOfFile(const Descriptor& file, const std::string& path) {
  struct stat status = {};
  if (fstat(file.Number(), &status) != 0) throw RefusalOfSystem("cannot open " + path);
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(path + " is no stream: expected a file");
  const auto bytes = static_cast<std::size_t>(status.st_size);
  if (bytes == 0) throw NotThere("the stream " + path + " is not complete yet");
  if (bytes > sizeof(Metadata)) return bytes;
  throw std::runtime_error(path + " is no stream: expected more than " + std::to_string(sizeof(Metadata)) +
                           " bytes, found " + std::to_string(bytes));
}

/// What is wrong with a stream, where something is.
class Doubts {
 public:
  explicit Doubts(const std::string& path) : path_(path) {}

  template <typename Number>
  void Require(bool holds, const std::string& expected, Number found) const {
    if (holds) return;
    throw std::runtime_error(path_ + " is no stream of layout " + kVersion.data() + ": expected " + expected +
                             ", found " + std::to_string(found));
  }

  void RequireVersion(const Metadata& head) const {
    if (std::ranges::equal(kVersion, std::span(head.version).first<kVersion.size()>())) return;
    throw std::runtime_error(path_ + " is a stream of another layout: expected version " + kVersion.data() +
                             ", found another text");
  }

 private:
  const std::string& path_;
};

/// Checks what the file says of itself, in the order that all readers have, then what would let us read beyond it.
Parts Checked(const Metadata& head, std::size_t bytes, const std::string& path) {
  if (head.version.front() == '\0') throw NotThere("the stream " + path + " is not complete yet");
  const Doubts doubts(path);
  doubts.Require(head.name.front() != '\0', "a name", 0);
  doubts.Require(head.axes >= 1 && head.axes <= 3, "1 to 3 axes", head.axes);
  const auto size = std::span(head.size).first(head.axes);
  for (const std::uint32_t pixels : size) doubts.Require(pixels >= 1, "at least 1 pixel along each axis", pixels);
  doubts.Require(head.location >= -1, "a location of at least -1", head.location);
  doubts.Require(head.type >= 1 && head.type <= 13, "a pixel type of 1 to 13", head.type);
  doubts.Require(head.shared <= 1, "a mark of shared memory of at most 1", head.shared);
  const std::optional<Parts> parts = PartsOf(head);
  doubts.Require(parts && parts->end == bytes, parts ? "a size of " + std::to_string(parts->end) : "a possible size",
                 bytes);
  doubts.RequireVersion(head);
  doubts.Require(head.elements <= kMostElements, "at most " + std::to_string(kMostElements) + " pixels", head.elements);

  std::uint64_t product = 1;
  for (const std::uint32_t pixels : size) {
    doubts.Require(pixels <= kMostElements / product, "the product of its axes as the number of pixels", head.elements);
    product *= pixels;
  }
  doubts.Require(product == head.elements, "the product of its axes as the number of pixels", head.elements);
  const std::uint64_t image_bytes = product * SizeOf(static_cast<PixelType>(head.type));
  doubts.Require(head.image_bytes == image_bytes, std::to_string(image_bytes) + " bytes of pixels", head.image_bytes);
  return *parts;
}

/// The semaphore that is now ours, emptied: it may hold what was posted for readers before.
std::optional<std::size_t> TakeSemaphore(const SharedFile& file, std::size_t semaphores) {
  for (std::size_t i = 0; i < semaphores; ++i) {
    std::int32_t pid = Shared(file.ReaderPid(i)).load();
    if (IsOfLivingProcess(pid) || !Shared(file.ReaderPid(i)).compare_exchange_strong(pid, getpid())) continue;
    while (sem_trywait(file.Semaphore(i)) == 0) {
    }
    return i;
  }
  return std::nullopt;
}

std::timespec AsTime(Clock::time_point point) {
  const auto since = point.time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
  return {seconds.count(), (since - seconds).count()};
}

/// The numbers of the keywords in use.
std::vector<std::size_t> UsedKeywords(const SharedFile& file, std::size_t keywords) {
  std::vector<std::size_t> used;
  for (std::size_t i = 0; i < keywords; ++i) {
    if (IsInUse(file.Keyword(i))) used.push_back(i);
  }
  return used;
}

}  // namespace

struct Reader::State {
  State(std::string stream_path, const Descriptor& opened, std::size_t bytes);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  State(State&&) = delete;
  State& operator=(State&&) = delete;

  std::string path;
  Identity identity;
  SharedFile file;
  Metadata head;  ///< as it was on attaching: what it says of the layout stays
  std::vector<std::size_t> keywords;
  std::optional<std::size_t> semaphore;
};

Reader::State::State(std::string stream_path, const Descriptor& opened, std::size_t bytes)
    : path(std::move(stream_path)), identity(IdentityOf(opened)), file(opened, bytes, path), head(file.Head()) {
  file.SetParts(Checked(head, bytes, path));
  keywords = UsedKeywords(file, head.keywords);
  semaphore = TakeSemaphore(file, head.semaphores);
}

Reader::State::~State() {
  if (semaphore) Shared(file.ReaderPid(*semaphore)).store(-1);
}

Reader::Reader(const std::string& name) {
  std::string path = PathOf(name);
  const Descriptor file = Opened(path);
  const std::size_t bytes = SizeOfFile(file, path);
  state_ = std::make_unique<State>(std::move(path), file, bytes);
}

Reader::~Reader() = default;

PixelType Reader::Type() const { return static_cast<PixelType>(state_->head.type); }

std::vector<std::uint32_t> Reader::Size() const {
  const Metadata& head = state_->head;
  return {head.size.begin(), head.size.begin() + head.axes};
}

std::size_t Reader::Bytes() const { return state_->head.image_bytes; }

std::vector<Keyword> Reader::Keywords() const {
  std::vector<Keyword> keywords;
  keywords.reserve(state_->keywords.size());
  for (const std::size_t i : state_->keywords) {
    KeywordEntry& entry = state_->file.Keyword(i);
    keywords.push_back({NameOf(entry), {}, CommentOf(entry)});
    stream::Read(entry, keywords.back().value);
  }
  return keywords;
}

bool Reader::HasSemaphore() const { return state_->semaphore.has_value(); }

std::size_t Reader::SemaphoresTaken() const { return stream::SemaphoresTaken(state_->file, state_->head.semaphores); }

std::uint64_t Reader::Count() const { return Shared(state_->file.Head().cnt0).load(std::memory_order_acquire); }

std::uint64_t Reader::Wait(std::uint64_t seen, std::chrono::nanoseconds limit) {
  const Clock::time_point end = Clock::now() + std::min<std::chrono::nanoseconds>(limit, kLongestWait);
  const std::timespec end_time = AsTime(end);
  while (Count() == seen && Clock::now() < end) {
    if (!state_->semaphore) {
      std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(kPause, end - Clock::now()));
    } else if (sem_clockwait(state_->file.Semaphore(*state_->semaphore), CLOCK_MONOTONIC, &end_time) != 0) {
      break;  // the time is over, or a signal came
    }
  }
  return Count();
}

bool Reader::Read(gsl::span<std::byte> pixels, FrameInfo& info) const {
  if (pixels.size() != Bytes()) {
    throw std::invalid_argument("Read: pixels must have " + std::to_string(Bytes()) + " bytes, found " +
                                std::to_string(pixels.size()));
  }
  const SharedFile& file = state_->file;
  Metadata& head = file.Head();
  info.count = Count();
  const bool was_written = Shared(head.write).load(std::memory_order_acquire) != 0;
  CopyFromShared(file.Pixels(), pixels.size(), pixels.data());
  info.acquired = Load(head.acquired);
  info.written = Load(head.written);
  info.values.resize(state_->keywords.size());
  for (std::size_t i = 0; i < info.values.size(); ++i) stream::Read(file.Keyword(state_->keywords[i]), info.values[i]);
  const bool is_written = Shared(head.write).load(std::memory_order_acquire) != 0;
  return !was_written && !is_written && Count() == info.count;
}

bool Reader::IsReplaced() const { return IdentityOf(state_->path) != state_->identity; }

}  // namespace quen::stream
