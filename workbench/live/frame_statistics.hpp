#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <vector>

#include "workbench/live/durations.hpp"
#include "workbench/live/follower.hpp"
#include "workbench/live/frame_contents.hpp"

namespace quen::workbench {

/// What became of a stream's frames.
struct FrameCounts {
  std::uint64_t frames = 0;       ///< read as a whole
  std::uint64_t lost = 0;         ///< written, by the stream's counter, and never read
  std::uint64_t unpublished = 0;  ///< never written, by the keyword FRAME
  std::uint64_t repeated = 0;     ///< their pixels are those of the frame before
  std::uint64_t torn = 0;         ///< rows at one end are new, those at the other are of the frame before
  std::uint64_t overtaken = 0;    ///< of which the writer let nobody have a whole copy at first
  std::uint64_t misnumbered = 0;  ///< the counter went back, or further than the keyword FRAME
  std::uint64_t made_anew = 0;    ///< times that the stream was
  std::array<std::uint64_t, kOddities.size()> odd = {};  ///< of each oddity, those that have it
};

/// Takes what a Follower finds, and counts.
///
/// **Torn frames.** A writer that raises no flag while it writes hands out frames that are part new, part old. Such a
/// frame is told by rows that have changed in every frame so far, as noise makes them change: at one end of the image
/// they have changed again, at the other they have not.
///
/// **Lost frames** are the gaps in the counter. Where the stream has an integer keyword FRAME, which numbers what is
/// rendered, the counter is held against it: it tells frames that were never written from those that were missed, and a
/// counter that jumps from a loss.
///
/// **Odd frames** are told of images of 16-bit pixels; those that are repeated or torn are told of that alone.
class FrameStatistics {
 public:
  /// Takes what the last look has found.
  void Take(StreamEvent event, const Follower& stream);

  [[nodiscard]] const FrameCounts& Counts() const { return counts_; }
  /// Whether odd frames are told: the pixels have 16 bits, and two axes that are long enough.
  [[nodiscard]] bool TellsOddities() const { return contents_.has_value(); }
  /// From the time that the writer gives until the frame was seen to be there, seconds.
  [[nodiscard]] const Durations& Latencies() const { return latencies_; }
  /// From one frame until the next one, seconds.
  [[nodiscard]] const Durations& Intervals() const { return intervals_; }
  /// Frames written a second, by the counter; 0 of less than two.
  [[nodiscard]] double Rate() const { return elapsed_ > 0.0 ? static_cast<double>(written_) / elapsed_ : 0.0; }

 private:
  /// What is kept of the frame before.
  struct Before {
    std::uint64_t count = 0;
    std::optional<std::int64_t> number = {};  ///< the keyword FRAME
    std::optional<std::timespec> arrival = {};
    std::vector<std::byte> pixels = {};  ///< empty if there is none
  };

  void Attach(const Follower& stream);
  void TakeFrame(const Follower& stream);
  void CountSteps(const stream::FrameInfo& info, std::optional<std::int64_t> number);
  void TakeTimes(const Follower& stream);
  void Compare(const Follower& stream);
  void LookAtContents(const Follower& stream);

  FrameCounts counts_;
  Durations latencies_;
  Durations intervals_;
  std::uint64_t written_ = 0;
  double elapsed_ = 0.0;
  std::uint64_t overtaken_ = 0;  ///< the last count of an overtaken frame
  bool is_attached_ = false;
  std::size_t place_of_number_ = 0;      ///< of the keyword FRAME
  std::vector<std::uint8_t> is_lively_;  ///< of each row: whether it has changed in every frame so far
  std::size_t comparisons_ = 0;
  Before before_;
  std::optional<FrameContents> contents_;
  std::vector<std::int16_t> levels_;  ///< pixels, as signed ones
};

}  // namespace quen::workbench
