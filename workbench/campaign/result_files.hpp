#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "workbench/fits/descriptor.hpp"

/// @file
/// The results of a campaign's runs, in a folder: a file per shard, "runs-I-of-N", in which each run has a place of its
/// own, of the same size for all, that holds a check sum, the state, the numbers and the sentence of a failure.
///
/// - A place, and not the end of the file, because results then need no order, no list and no lock: two processes that
///   are given the same shard write the same bytes to the same place.
/// - A check sum in each, because a process, a disk or a machine may stop in the middle of one. It covers the
/// campaign's
///   identity and the run's number, too: a result of another campaign, or of another run, is none.
/// - A file per shard, because network file systems keep pages of a file on each machine that writes to it.
///
/// Shard I of N has the runs I − 1, I − 1 + N, I − 1 + 2 N and so on: all have some of each point. Files of any N may
/// stand beside each other; what any of them holds is there. A run that is in several is the better of them: one that
/// succeeded before one that failed.
///
/// A result that has been written survives the end of its process in any way. When the machine stops, the last seconds
/// may be lost; those runs are missing then, or damaged, and are run again.

namespace quen::workbench {

/// A part of the runs, for one process: number 1 to `of`.
struct Shard {
  std::uint64_t number = 1;
  std::uint64_t of = 1;

  [[nodiscard]] bool Has(std::uint64_t run) const { return run % of == number - 1; }
  /// How many of the runs below `runs` it has.
  [[nodiscard]] std::uint64_t Size(std::uint64_t runs) const;

  bool operator==(const Shard&) const = default;
};

/// From "I/N".
/// @throws std::invalid_argument  not such a text, or not 1 <= I <= N <= 100000
Shard ParseShard(const std::string& text);

enum class RunState : std::uint32_t { kMissing = 0, kDone = 1, kFailed = 2, kDamaged = 3 };

/// What is known of a run.
struct RunRecord {
  RunState state = RunState::kMissing;
  std::vector<double> values = {};  ///< where it is done or has failed
  std::string failure = {};         ///< where it has failed
  std::string file = {};            ///< where it was found
};

/// A sentence is cut to this length.
inline constexpr std::size_t kLongestFailure = 184;

/// The files in a folder.
class ResultFiles {
 public:
  /// @param identity  of the campaign
  /// @param results   numbers that a run gives
  ResultFiles(std::string folder, std::string_view identity, std::size_t results, std::uint64_t runs);

  /// What is there now of the runs from `first` on; fewer than `count` only where there are no more.
  /// @throws std::runtime_error  a file cannot be read; two files hold different results of a run
  [[nodiscard]] std::vector<RunRecord> Read(std::uint64_t first, std::size_t count) const;

  [[nodiscard]] std::uint64_t Runs() const { return runs_; }

  /// Of the files that may hold runs of a shard.
  class Writer;

 private:
  struct File {
    Shard shard;
    std::string path;
  };

  [[nodiscard]] std::vector<File> Files() const;
  [[nodiscard]] std::size_t PlaceSize() const;
  /// Of a run's place behind the check sum.
  [[nodiscard]] std::uint64_t SumOf(std::uint64_t run, std::string_view bytes) const;
  [[nodiscard]] std::string Encoded(std::uint64_t run, const RunRecord& record) const;
  [[nodiscard]] RunRecord Decoded(std::uint64_t run, std::string_view place) const;
  void ReadFile(const File& file, std::uint64_t first, std::vector<RunRecord>& records) const;

  std::string folder_;
  std::uint64_t identity_;  ///< check sum of it
  std::size_t results_;
  std::uint64_t runs_;
};

/// Writes the results of a shard. Any number of threads may write.
class ResultFiles::Writer {
 public:
  /// Opens or makes the shard's file.
  /// @throws std::runtime_error  it cannot be opened or made
  Writer(const ResultFiles& files, const Shard& shard);

  /// @throws std::runtime_error  it cannot be written, or not all of it
  void Write(std::uint64_t run, const RunRecord& record);

  /// Waits until the disk has all that was written.
  /// @throws std::runtime_error  it has not
  void Settle();

 private:
  const ResultFiles& files_;
  Shard shard_;
  std::string path_;
  Descriptor file_;
};

}  // namespace quen::workbench
