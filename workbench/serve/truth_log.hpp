#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/fits/fits.hpp"
#include "workbench/fits/descriptor.hpp"
#include "workbench/fits/output_target.hpp"
#include "workbench/sensor/dimensions.hpp"

/// @file
/// The truth of frames that others see: a FITS file with a table "truth", a row for each frame that was drawn, which
/// grows while they are.

namespace quen::workbench {

/// Times are seconds.
struct TruthRow {
  static constexpr std::size_t kFaultLength = 120;

  std::int64_t frame = 0;
  std::int64_t cnt0 = 0;   ///< with which it was published; 0 if it was not
  double due = 0.0;        ///< monotonic clock
  double due_tai = 0.0;    ///< atime
  double published = 0.0;  ///< monotonic clock; NaN if it was not
  double published_tai = 0.0;
  std::array<double, kNumModes> residual = {};    ///< rad
  std::array<double, kNumModes> correction = {};  ///< rad, in it
  std::int64_t correction_count = 0;              ///< cnt0 with which that was written; 0 if none was
  std::array<char, kFaultLength> fault = {};      ///< what hit it; empty if nothing did
};

inline constexpr const char* kTruthTable = "truth";

/// A file of rows, written by a thread of its own, kRowsInBlock at a time: after each block the file is a whole one of
/// all rows so far, whatever becomes of the process then.
class TruthLog {
 public:
  static constexpr std::size_t kRowsInBlock = 64;

  using WriteKeys = std::function<void(const quen::common::Fits::Handle&)>;

  /// Makes the file, without rows, in the place of one that is there.
  /// @param write_keys  writes what else its header says
  /// @throws std::runtime_error  it cannot be made, or is no file on a disk
  TruthLog(const OutputTarget& target, const WriteKeys& write_keys);
  /// Writes what is left, if that is possible.
  ~TruthLog();
  TruthLog(const TruthLog&) = delete;
  TruthLog& operator=(const TruthLog&) = delete;
  TruthLog(TruthLog&&) = delete;
  TruthLog& operator=(TruthLog&&) = delete;

  /// Allocates nothing. Waits where writing is a thousand rows behind.
  /// @throws std::runtime_error  an earlier row could not be written
  void Add(const TruthRow& row);

  /// Writes what is left, and ends the thread.
  /// @throws std::runtime_error  it cannot be written
  void Finish();

 private:
  void Work();
  void WriteRows(std::size_t first, std::size_t count);
  void WriteAt(std::uint64_t position, const void* bytes, std::size_t size) const;

  std::string name_;
  Descriptor file_;
  std::uint64_t count_at_ = 0;  ///< where the card with the number of rows is
  std::uint64_t rows_at_ = 0;   ///< where the rows begin
  std::uint64_t written_ = 0;   ///< rows in the file
  std::vector<TruthRow> rows_;  ///< a ring
  std::vector<char> bytes_;     ///< of a block, as they are in the file

  std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t added_ = 0;  ///< rows so far
  std::uint64_t taken_ = 0;  ///< of those, rows whose places are free again
  bool is_over_ = false;
  std::exception_ptr failure_;
  std::thread thread_;
};

}  // namespace quen::workbench
