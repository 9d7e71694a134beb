#include "stream/writer.hpp"

#include <semaphore.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "stream/names.hpp"
#include "stream/src/claim.hpp"
#include "stream/src/keywords.hpp"
#include "stream/src/living_readers.hpp"
#include "stream/src/refusal.hpp"
#include "stream/src/shared_file.hpp"
#include "stream/src/words.hpp"

namespace quen::stream {
namespace {

void RequireAxes(const std::vector<std::uint32_t>& size) {
  if (size.empty() || size.size() > 3) {
    throw std::invalid_argument("Writer: size must have 1 to 3 axes, found " + std::to_string(size.size()));
  }
  std::uint64_t elements = 1;
  for (const std::uint32_t pixels : size) {
    if (pixels == 0 || pixels > kMostElements / elements) {
      throw std::invalid_argument("Writer: size must be at least 1 along each axis and at most " +
                                  std::to_string(kMostElements) + " pixels in all, found " + std::to_string(pixels) +
                                  " along one");
    }
    elements *= pixels;
  }
}

void RequireKeywords(const std::vector<Keyword>& keywords) {
  constexpr std::size_t kMost = 65535;
  if (keywords.size() > kMost) {
    throw std::invalid_argument("Writer: keywords must be at most " + std::to_string(kMost) + ", found " +
                                std::to_string(keywords.size()));
  }
  for (const Keyword& keyword : keywords) RequireFits(keyword);
}

void RequireType(PixelType type) {
  if (type >= PixelType::kUint8 && type <= PixelType::kHalf) return;
  throw std::invalid_argument("Writer: type must be one of PixelType, found " +
                              std::to_string(static_cast<unsigned>(type)));
}

const StreamConfig& Checked(const StreamConfig& config) {
  RequireType(config.type);
  RequireAxes(config.size);
  RequireKeywords(config.keywords);
  return config;
}

/// All of it but the version.
Metadata MetadataFor(const StreamConfig& config, const Descriptor& file) {
  Metadata head = {};
  std::ranges::copy(config.name, head.name.begin());
  head.axes = static_cast<std::uint8_t>(config.size.size());
  std::ranges::copy(config.size, head.size.begin());
  head.elements = std::reduce(config.size.begin(), config.size.end(), std::uint64_t{1}, std::multiplies<>());
  head.type = static_cast<std::uint8_t>(config.type);
  head.created = Now();
  head.last_access = head.created;
  head.creator_pid = getpid();
  head.shared = 1;
  head.inode = IdentityOf(file).inode;
  head.location = -1;
  head.semaphores = kSemaphores;
  head.traces = kTraces;
  head.keywords = static_cast<std::uint16_t>(config.keywords.size());
  head.image_bytes = head.elements * SizeOf(config.type);
  return head;
}

bool IsBelowLimit(sem_t* semaphore) {
  int posts = 0;
  return sem_getvalue(semaphore, &posts) == 0 && posts < kMostPosts;
}

}  // namespace

struct Writer::State {
  explicit State(const StreamConfig& config);

  void RequireValues(gsl::span<const KeywordValue> values) const;
  void Wake() const;

  std::vector<Keyword> keywords;
  Claim claim;  // outlives the file's memory
  Metadata head;
  SharedFile file;
  std::int32_t pid = getpid();
  std::uint64_t step = 1;  ///< of cnt0, with the next frame
};

namespace {

/// The size of a file with these metadata.
Parts PartsFor(const Metadata& head) { return PartsOf(head).value(); }  // kMostElements cannot be too long

const Descriptor& Reserved(const Claim& claim, const Metadata& head) {
  claim.Reserve(PartsFor(head).end);
  return claim.File();
}

}  // namespace

Writer::State::State(const StreamConfig& config)
    : keywords(Checked(config).keywords),
      claim(PathOf(config.name)),
      head(MetadataFor(config, claim.File())),
      file(Reserved(claim, head), PartsFor(head).end, claim.Path()) {
  file.Head() = head;
  file.SetParts(PartsFor(head));
  for (std::size_t i = 0; i < keywords.size(); ++i) Describe(keywords[i], file.Keyword(i));
  for (std::size_t i = 0; i < kSemaphores; ++i) {
    sem_init(file.Semaphore(i), 1, 0);
    file.ReaderPid(i) = -1;
    file.WriterPid(i) = -1;
  }
  sem_init(file.LogSemaphore(), 1, 0);
  for (std::size_t i = 0; i < kTraces; ++i) file.TraceAt(i).semaphore = -1;
  decltype(Metadata::version) version = {};
  std::ranges::copy(kVersion, version.begin());
  Store(version, file.Head().version);
}

void Writer::State::RequireValues(gsl::span<const KeywordValue> values) const {
  if (values.empty()) return;
  if (values.size() != keywords.size()) {
    throw std::invalid_argument("Publish: values must be one for each of " + std::to_string(keywords.size()) +
                                " keywords, or none, found " + std::to_string(values.size()));
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (values[i].index() != keywords[i].value.index()) {
      throw std::invalid_argument("Publish: the value of keyword " + keywords[i].name +
                                  " must be of the type that it began with");
    }
    RequireFits(keywords[i].name, values[i]);
  }
}

void Writer::State::Wake() const {
  for (std::size_t i = 0; i < kSemaphores; ++i) {
    if (!IsBelowLimit(file.Semaphore(i))) continue;
    Shared(file.WriterPid(i)).store(pid, std::memory_order_relaxed);
    sem_post(file.Semaphore(i));
  }
  if (IsBelowLimit(file.LogSemaphore())) sem_post(file.LogSemaphore());
}

Writer::Writer(const StreamConfig& config) : state_(std::make_unique<State>(config)) {}
Writer::~Writer() = default;

void Writer::Publish(gsl::span<const std::byte> pixels, std::timespec acquired, gsl::span<const KeywordValue> values) {
  if (pixels.size() != Bytes()) {
    throw std::invalid_argument("Publish: pixels must have " + std::to_string(Bytes()) + " bytes, found " +
                                std::to_string(pixels.size()));
  }
  state_->RequireValues(values);

  const SharedFile& file = state_->file;
  Metadata& head = file.Head();
  Shared(head.write).exchange(1);
  CopyToShared(pixels.data(), pixels.size(), file.Pixels());
  for (std::size_t i = 0; i < values.size(); ++i) Write(values[i], file.Keyword(i));
  Store(Now(), head.written);
  Store(acquired, head.acquired);
  Shared(head.cnt0).store(Count() + std::exchange(state_->step, 1), std::memory_order_release);
  Shared(head.write).store(0, std::memory_order_release);
  state_->Wake();
}

void Writer::SetNextStep(std::uint64_t step) { state_->step = step; }
std::uint64_t Writer::Count() const { return Shared(state_->file.Head().cnt0).load(std::memory_order_relaxed); }
std::size_t Writer::SemaphoresTaken() const { return stream::SemaphoresTaken(state_->file, kSemaphores); }
std::size_t Writer::Bytes() const { return state_->head.image_bytes; }
const std::string& Writer::Path() const { return state_->claim.Path(); }

std::timespec Now() {
  std::timespec now = {};
  clock_gettime(CLOCK_TAI, &now);
  return now;
}

}  // namespace quen::stream
