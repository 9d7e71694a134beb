#include "workbench/campaign/result_files.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "workbench/campaign/src/check_sum.hpp"
#include "workbench/fits/output_target.hpp"
#include "workbench/fits/plain_text.hpp"
#include "workbench/fits/transfer.hpp"

namespace quen::workbench {
namespace {

constexpr std::uint64_t kMostShards = 100000;
constexpr std::string_view kRunsPrefix = "runs-";
constexpr std::string_view kBetween = "-of-";

std::optional<std::uint64_t> WholeNumber(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// From two numbers with something between them.
std::optional<Shard> ShardFrom(std::string_view text, std::string_view between) {
  const std::size_t at = text.find(between);
  if (at == std::string_view::npos) return std::nullopt;
  const auto number = WholeNumber(text.substr(0, at));
  const auto of = WholeNumber(text.substr(at + between.size()));
  if (!number || !of || *number < 1 || *number > *of || *of > kMostShards) return std::nullopt;
  return Shard{*number, *of};
}

std::string FileName(const Shard& shard) {
  return fmt::format("{}{}{}{}", kRunsPrefix, shard.number, kBetween, shard.of);
}

// --- Bytes of a place, in the order of the processor

template <typename T>
void Put(std::string& bytes, const T& value) {
  std::array<char, sizeof value> raw{};
  std::memcpy(raw.data(), &value, sizeof value);
  bytes.append(raw.data(), raw.size());
}

template <typename T>
T Get(std::string_view bytes, std::size_t at) {
  T value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

constexpr std::size_t kState = sizeof(std::uint64_t);            // behind the check sum
constexpr std::size_t kLength = kState + sizeof(std::uint32_t);  // of the sentence
constexpr std::size_t kNumbers = kLength + sizeof(std::uint32_t);

/// The bytes as they are, NaN with NaN.
bool AreEqual(const std::vector<double>& one, const std::vector<double>& other) {
  return one.size() == other.size() && std::memcmp(one.data(), other.data(), one.size() * sizeof(double)) == 0;
}

/// Which of two records of a run to keep.
void Keep(std::uint64_t run, RunRecord& kept, RunRecord found) {
  const auto rank = [](RunState state) {
    switch (state) {
      case RunState::kDone:
        return 3;
      case RunState::kFailed:
        return 2;
      case RunState::kDamaged:
        return 1;
      case RunState::kMissing:
        break;
    }
    return 0;
  };
  if (rank(found.state) > rank(kept.state)) {
    kept = std::move(found);
  } else if (found.state == RunState::kDone && kept.state == RunState::kDone && !AreEqual(found.values, kept.values)) {
    throw std::runtime_error(
        fmt::format("{} and {}: expected the same result of run {} in both, found two; remove the file of the machine "
                    "that is wrong",
                    kept.file, found.file, run));
  }
}

}  // namespace

std::uint64_t Shard::Size(std::uint64_t runs) const { return runs < number ? 0 : (runs - number) / of + 1; }

Shard ParseShard(const std::string& text) {
  const std::optional<Shard> shard = ShardFrom(text, "/");
  if (!shard) {
    throw std::invalid_argument(fmt::format("expected I/N, 1 <= I <= N <= {}, found {}", kMostShards, text));
  }
  return *shard;
}

ResultFiles::ResultFiles(std::string folder, std::string_view identity, std::size_t results, std::uint64_t runs)
    : folder_(std::move(folder)), identity_(CheckSum(identity)), results_(results), runs_(runs) {}

std::size_t ResultFiles::PlaceSize() const { return kNumbers + results_ * sizeof(double) + kLongestFailure; }

std::vector<ResultFiles::File> ResultFiles::Files() const {
  std::vector<File> files;
  std::error_code code;
  for (const auto& entry : std::filesystem::directory_iterator(folder_, code)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with(kRunsPrefix)) continue;
    const auto shard = ShardFrom(std::string_view(name).substr(kRunsPrefix.size()), kBetween);
    if (shard && name == FileName(*shard)) files.push_back({*shard, entry.path().string()});
  }
  if (code) throw std::runtime_error(folder_ + ": cannot be read: " + code.message());
  std::ranges::sort(files, {}, [](const File& file) { return std::pair(file.shard.of, file.shard.number); });
  return files;
}

std::uint64_t ResultFiles::SumOf(std::uint64_t run, std::string_view bytes) const {
  std::string key;
  Put(key, identity_);
  Put(key, run);
  return CheckSum(bytes, CheckSum(key));
}

std::string ResultFiles::Encoded(std::uint64_t run, const RunRecord& record) const {
  std::string sentence = Plain(record.failure);
  if (sentence.size() > kLongestFailure) sentence = Plain(sentence.substr(0, kLongestFailure - 3)) + "...";
  sentence.resize(std::min(sentence.size(), kLongestFailure));
  std::string bytes;
  Put(bytes, static_cast<std::uint32_t>(record.state));
  Put(bytes, static_cast<std::uint32_t>(sentence.size()));
  for (const double value : record.values) Put(bytes, value);
  bytes += sentence;
  bytes.resize(PlaceSize() - kState, '\0');
  std::string place;
  Put(place, SumOf(run, bytes));
  return place + bytes;
}

RunRecord ResultFiles::Decoded(std::uint64_t run, std::string_view place) const {
  if (place.find_first_not_of('\0') == std::string_view::npos) return {};
  const bool is_whole = place.size() == PlaceSize() && Get<std::uint64_t>(place, 0) == SumOf(run, place.substr(kState));
  if (!is_whole) return {.state = RunState::kDamaged};
  RunRecord record = {.state = static_cast<RunState>(Get<std::uint32_t>(place, kState))};
  for (std::size_t k = 0; k < results_; ++k) {
    record.values.push_back(Get<double>(place, kNumbers + k * sizeof(double)));
  }
  const auto length = Get<std::uint32_t>(place, kLength);
  record.failure = place.substr(kNumbers + results_ * sizeof(double), length);
  return record;
}

void ResultFiles::ReadFile(const File& file, std::uint64_t first, std::vector<RunRecord>& records) const {
  const auto [number, of] = file.shard;
  const std::uint64_t start = number - 1;
  const std::uint64_t end = first + records.size();
  const std::uint64_t first_place = first <= start ? 0 : (first - start + of - 1) / of;
  const std::uint64_t end_place = end <= start ? 0 : (end - start + of - 1) / of;
  if (first_place >= end_place) return;
  const Descriptor open(Open(file.path, O_RDONLY));
  if (!open.IsOpen() && errno == ENOENT) return;
  try {
    if (!open.IsOpen()) throw std::system_error(errno, std::generic_category());
    const auto read = [&](std::uint64_t place, std::uint64_t count) {
      return ReadAt(open.Number(), place * PlaceSize(), count * PlaceSize());
    };
    const std::string bytes = read(first_place, end_place - first_place);
    for (std::uint64_t place = first_place; place < end_place; ++place) {
      const std::size_t at = (place - first_place) * PlaceSize();
      if (at >= bytes.size()) break;
      const std::uint64_t run = start + place * of;
      RunRecord found = Decoded(run, std::string_view(bytes).substr(at, PlaceSize()));
      // Somebody may have been writing it.
      if (found.state == RunState::kDamaged) found = Decoded(run, read(place, 1));
      found.file = file.path;
      Keep(run, records[run - first], std::move(found));
    }
  } catch (const std::system_error& error) {
    throw std::runtime_error(file.path + ": cannot be read: " + error.code().message());
  }
}

std::vector<RunRecord> ResultFiles::Read(std::uint64_t first, std::size_t count) const {
  const std::uint64_t left = first < runs_ ? runs_ - first : 0;
  std::vector<RunRecord> records(std::min<std::uint64_t>(count, left));
  for (const File& file : Files()) ReadFile(file, first, records);
  return records;
}

ResultFiles::Writer::Writer(const ResultFiles& files, const Shard& shard)
    : files_(files), shard_(shard), path_((std::filesystem::path(files.folder_) / FileName(shard)).string()) {
  file_ = Descriptor(Open(path_, O_RDWR | O_CREAT, DEFFILEMODE));
  if (!file_.IsOpen()) RefuseToWrite(path_, errno);
}

void ResultFiles::Writer::Write(std::uint64_t run, const RunRecord& record) {
  const std::string bytes = files_.Encoded(run, record);
  const std::uint64_t place = run / shard_.of;
  try {
    WriteAt(file_.Number(), bytes, place * bytes.size());
  } catch (const std::system_error& error) {
    RefuseToWrite(path_, error.code().value());
  }
}

void ResultFiles::Writer::Settle() {
  while (fdatasync(file_.Number()) != 0) {
    if (errno != EINTR) RefuseToWrite(path_, errno);
  }
}

}  // namespace quen::workbench
