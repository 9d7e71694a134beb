#include "workbench/serve/truth_log.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "workbench/fits/big_endian.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/memory_fits.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/fits/transfer.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kFitsBlock = 2880;
constexpr std::size_t kCard = 80;
constexpr std::size_t kRowsInRing = 16 * TruthLog::kRowsInBlock;

struct TruthColumn {
  const char* name;
  std::string format;
  const char* unit;
  const char* comment;
};

std::string Vector(std::size_t count, char type) { return fmt::format("{}{}", count, type); }

/// In the order in which AppendRow has them.
std::vector<TruthColumn> TruthColumns() {
  return {{"FRAME", "K", "", "counted from 0"},
          {"cnt0", "K", "", "0: not published"},
          {"due", "D", "s", "monotonic clock"},
          {"due_tai", "D", "s", "TAI, since 1970; atime"},
          {"published", "D", "s", "monotonic clock; NaN: not published"},
          {"published_tai", "D", "s", "TAI, since 1970"},
          {"residual", Vector(kNumModes, 'D'), "rad", "phase"},
          {"correction", Vector(kNumModes, 'D'), "rad", "phase, in the residual"},
          {"correction_cnt0", "K", "", "of the corrections' stream; 0: none"},
          {"fault", Vector(TruthRow::kFaultLength, 'A'), "", "empty: none"}};
}

void AppendRow(const TruthRow& row, std::vector<char>& bytes) {
  AppendBigEndian(row.frame, bytes);
  AppendBigEndian(row.cnt0, bytes);
  for (const double time : {row.due, row.due_tai, row.published, row.published_tai}) AppendBigEndian(time, bytes);
  for (const double mode : row.residual) AppendBigEndian(mode, bytes);
  for (const double mode : row.correction) AppendBigEndian(mode, bytes);
  AppendBigEndian(row.correction_count, bytes);
  bytes.insert(bytes.end(), row.fault.begin(), row.fault.end());
}

std::size_t BytesOfRow() {
  std::vector<char> bytes;
  AppendRow({}, bytes);
  return bytes.size();
}

std::size_t Rounded(std::size_t bytes) { return (bytes + kFitsBlock - 1) / kFitsBlock * kFitsBlock; }

/// The file without rows. A table that grows has no checksums: their cards are blank.
std::string EmptyTable(const TruthLog::WriteKeys& write_keys) {
  MemoryFits fits;
  std::vector<std::pair<std::string, std::string>> formats;
  for (const TruthColumn& column : TruthColumns()) formats.emplace_back(column.name, column.format);
  const quen::common::Fits::Handle& table = fits.AddTable(kTruthTable, formats);
  int number = 0;
  for (const TruthColumn& column : TruthColumns()) {
    ++number;
    if (*column.unit != '\0') WriteKey(table, fmt::format("TUNIT{}", number), column.unit, column.comment);
  }
  WriteKey(table, "BLOCK", static_cast<long>(TruthLog::kRowsInBlock), "rows that are written at a time");
  write_keys(table);
  return fits.Bytes();
}

/// Where a card of the last header is.
std::size_t PlaceOf(const std::string& bytes, std::string_view keyword) {
  const std::size_t header = bytes.rfind("XTENSION");
  for (std::size_t at = header; at < bytes.size(); at += kCard) {
    if (HasKeyword(std::string_view(bytes).substr(at, kCard), keyword)) return at;
  }
  throw std::logic_error("the table has no keyword " + std::string(keyword));
}

std::string RowsCard(std::uint64_t rows) {
  return fmt::format("{:<8}= {:>20} / {:<47}", "NAXIS2", rows, "number of rows");
}

}  // namespace

TruthLog::TruthLog(const OutputTarget& target, const WriteKeys& write_keys) : name_(target.name), rows_(kRowsInRing) {
  if (target.is_stream) throw std::runtime_error(name_ + ": expected a file on a disk for the log, found a stream");
  std::string bytes = EmptyTable(write_keys);
  for (const char* const sum : {"CHECKSUM", "DATASUM"}) bytes.replace(PlaceOf(bytes, sum), kCard, kCard, ' ');
  count_at_ = PlaceOf(bytes, "NAXIS2");
  rows_at_ = bytes.size();
  bytes_.reserve(kRowsInBlock * BytesOfRow() + kFitsBlock);
  StagedFile staged(target);
  staged.Write(bytes);
  staged.TakePlace();
  file_ = Descriptor(Open(target.path, O_RDWR));
  if (!file_.IsOpen()) RefuseToWrite(name_, errno);
  thread_ = std::thread([this] { Work(); });
}

TruthLog::~TruthLog() {
  try {
    Finish();
  } catch (const std::exception& /*told already, or nobody asks*/) {
  }
}

void TruthLog::Add(const TruthRow& row) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return added_ - taken_ < rows_.size() || failure_; });
  if (failure_) std::rethrow_exception(failure_);
  rows_[added_ % rows_.size()] = row;
  ++added_;
  const bool is_whole_block = added_ % kRowsInBlock == 0;
  lock.unlock();
  if (is_whole_block) changed_.notify_all();
}

void TruthLog::Finish() {
  if (!thread_.joinable()) return;
  {
    const std::scoped_lock lock(mutex_);
    is_over_ = true;
  }
  changed_.notify_all();
  thread_.join();
  if (failure_) std::rethrow_exception(failure_);
}

void TruthLog::Work() {
  std::unique_lock lock(mutex_);
  try {
    while (true) {
      changed_.wait(lock, [this] { return added_ - taken_ >= kRowsInBlock || is_over_; });
      const std::size_t count = std::min<std::size_t>(added_ - taken_, kRowsInBlock);
      if (count == 0) return;
      const std::size_t first = taken_ % rows_.size();
      lock.unlock();
      WriteRows(first, count);
      lock.lock();
      taken_ += count;
      changed_.notify_all();
    }
  } catch (const std::exception& /*told by the next row, or at the end*/) {
    if (!lock.owns_lock()) lock.lock();
    failure_ = std::current_exception();
    changed_.notify_all();
  }
}

void TruthLog::WriteRows(std::size_t first, std::size_t count) {
  const std::size_t row_bytes = BytesOfRow();
  bytes_.clear();
  for (std::size_t k = 0; k < count; ++k) AppendRow(rows_[(first + k) % rows_.size()], bytes_);
  const std::size_t before = written_ * row_bytes;
  bytes_.resize(Rounded(before + bytes_.size()) - before);  // zeros to the end of a block of the file
  WriteAt(rows_at_ + before, bytes_.data(), bytes_.size());
  written_ += count;
  const std::string card = RowsCard(written_);  // last: until then these are bytes behind the table
  WriteAt(count_at_, card.data(), card.size());
}

void TruthLog::WriteAt(std::uint64_t position, const void* bytes, std::size_t size) const {
  auto left = std::span(static_cast<const char*>(bytes), size);
  while (!left.empty()) {
    const ssize_t done = pwrite(file_.Number(), left.data(), left.size(), static_cast<off_t>(position));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) RefuseToWrite(name_, errno);
    left = left.subspan(static_cast<std::size_t>(done));
    position += static_cast<std::uint64_t>(done);
  }
}

}  // namespace quen::workbench
