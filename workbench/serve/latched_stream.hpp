#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "stream/reader.hpp"
#include "workbench/serve/clock.hpp"

namespace quen::workbench {

/// What was seen of a stream that another program writes.
struct StreamCounts {
  std::uint64_t received = 0;    ///< frames that were taken
  std::uint64_t not_finite = 0;  ///< frames that were left, for a value that is NaN or infinite
  std::uint64_t torn = 0;        ///< times that a frame was found half written, and the last good one was kept
  std::uint64_t found = 0;       ///< times that the stream was there, or was there anew
  std::uint64_t lost = 0;        ///< times that it was there no more
};

/// The newest values of a stream of floats or doubles that another program makes, whenever it does: before, later, or
/// again and again.
class LatchedStream {
 public:
  /// @param size   pixels along its axes, the fastest first; further axes of 1 may follow
  /// @param clock  outlives the object
  /// @throws std::invalid_argument  the name, as for quen::stream::PathOf
  LatchedStream(std::string name, std::vector<std::uint32_t> size, Clock& clock);

  /// Looks for the stream, and takes what is new in it.
  /// @return  whether Values() now are the newest ones, or what is newest is not finite; false: it is half written
  /// @throws std::runtime_error  what has this name is no such stream
  bool Look();

  /// Looks again and again until something has been written since Written() was `mark`, and has been taken.
  /// @return  false if that has not come within the limit
  /// @throws std::runtime_error  as Look
  /// @throws Interrupted         a signal has come
  bool Await(std::uint64_t mark, Time limit);

  /// How many frames have been written, as far as can be seen, into one stream of this name after the other.
  [[nodiscard]] std::uint64_t Written();

  /// The newest ones; zeros before the first.
  [[nodiscard]] const std::vector<double>& Values() const { return values_; }
  /// The number of Values() in its stream, counted from 1; 0 before the first.
  [[nodiscard]] std::uint64_t Number() const { return number_; }
  /// Whether the stream was there, and is there no more.
  [[nodiscard]] bool IsLost() const { return counts_.lost > 0 && !reader_; }
  [[nodiscard]] const StreamCounts& Counts() const { return counts_; }
  [[nodiscard]] const std::string& Name() const { return name_; }

 private:
  /// @return  whether it is there
  bool Attach();
  void RequireShape() const;
  bool Take();

  std::string name_;
  std::vector<std::uint32_t> size_;
  Clock& clock_;
  std::optional<quen::stream::Reader> reader_;
  Time looked_for_ = Time::min();  ///< when it was last not there
  std::uint64_t before_ = 0;       ///< written into the streams before this one
  std::uint64_t seen_ = 0;         ///< count in this one of what was taken, or left
  std::vector<std::byte> pixels_;  ///< as they are in the stream
  std::vector<double> newest_;     ///< those, which may not be finite
  std::vector<double> values_;
  std::uint64_t number_ = 0;
  quen::stream::FrameInfo info_;
  StreamCounts counts_;
};

}  // namespace quen::workbench
