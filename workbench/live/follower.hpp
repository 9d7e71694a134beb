#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "stream/reader.hpp"

namespace quen::workbench {

/// What a look at a stream has found.
enum class StreamEvent {
  kNothing,    ///< no new frame
  kFrame,      ///< a whole one
  kOvertaken,  ///< the writer has gone on while the frame was copied: it is no whole one, and thrown away
  kMadeAnew,   ///< another file has the stream's name, and is followed from now on
  kGone,       ///< no file has the stream's name any more; one is looked for from now on
};

/// The frames of a stream, whoever writes it and however often it is made anew. One that is there already is the first.
class Follower {
 public:
  /// @throws what stream::Reader throws
  explicit Follower(std::string name);

  /// Waits for the next frame, a moment at most, in which a signal ends the wait.
  /// @throws std::runtime_error  the stream was made anew, and is none that can be read
  StreamEvent Look();

  [[nodiscard]] const stream::Reader& Stream() const { return *reader_; }
  [[nodiscard]] const std::string& Name() const { return name_; }
  [[nodiscard]] const std::string& Path() const { return path_; }  ///< of its file

  /// How many frames had been written when it was attached to.
  [[nodiscard]] std::uint64_t CountAtFirst() const { return count_at_first_; }

  // The last whole frame.
  [[nodiscard]] const stream::FrameInfo& Info() const { return info_; }
  [[nodiscard]] const std::vector<std::byte>& Pixels() const { return pixels_; }
  [[nodiscard]] std::timespec Arrival() const { return arrival_; }  ///< when it was seen to be there, TAI

 private:
  using Clock = std::chrono::steady_clock;

  void Attach();
  StreamEvent LookAfterFile();

  std::string name_;
  std::string path_;
  std::unique_ptr<stream::Reader> reader_;
  std::uint64_t count_at_first_ = 0;
  std::uint64_t seen_ = 0;
  bool is_gone_ = false;
  Clock::time_point next_look_ = Clock::now();  ///< after the file
  stream::FrameInfo copied_;
  std::vector<std::byte> copy_;
  stream::FrameInfo info_;
  std::vector<std::byte> pixels_;
  std::timespec arrival_ = {};
};

/// Follows a stream that may have to be made first.
/// @throws std::runtime_error  it is not there within the limit, or cannot be read
/// @throws Interrupted         a signal has come
Follower FollowOnceThere(const std::string& name, std::chrono::duration<double> limit);

/// Whether a process has the number of the one that made the stream. One that is no longer there may have given the
/// stream to another, or live where processes are numbered otherwise.
bool HasLivingMaker(const Follower& stream);

/// From one time to another, seconds.
double SecondsBetween(const std::timespec& from, const std::timespec& to);

/// The place of a keyword among those of a stream; their number if there is none.
std::size_t PlaceOf(const stream::Reader& reader, const std::string& keyword);

}  // namespace quen::workbench
