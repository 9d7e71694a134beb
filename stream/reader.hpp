#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <gsl/span>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "defs/export.hpp"
#include "stream/keyword.hpp"
#include "stream/layout.hpp"

/// @file
/// The end of a stream that reads it: any program's that has the layout of `stream/layout.hpp`.
///
/// A reader takes one of the stream's semaphores that no living reader has, and is woken by it; where none is free it
/// looks at the counter every tenth of a millisecond. It never holds the writer up.
///
/// **Torn frames.** Read copies while the writer may write. It tells whether the copy is one whole frame, by `write`
/// and `cnt0` before and after it (after it in this order; the other one would let torn frames pass). A writer that
/// never raises `write` tears frames that nobody can tell.
///
/// **Death.** A writer that is gone writes no more; that is all there is to see, so Wait has a limit. One that made its
/// stream anew did so in another file: IsReplaced tells, and a new Reader attaches to it. A file that somebody cuts
/// short under its readers ends their processes by SIGBUS: writers must never resize one.

namespace quen::stream {

/// There is no stream of this name, or none that is complete yet: it may come.
class QUEN_EXPORT NotThere : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What is told with a frame's pixels.
struct FrameInfo {
  std::uint64_t count = 0;                ///< cnt0: the first frame has 1
  std::timespec acquired = {};            ///< TAI
  std::timespec written = {};             ///< TAI
  std::vector<KeywordValue> values = {};  ///< the keywords', in the order of Reader::Keywords
};

/// A stream that is read. One thread at a time; several readers in one process are as good as in several.
class Reader {
 public:
  /// Attaches to a stream. Allocates.
  /// @throws std::invalid_argument  the name, as for PathOf
  /// @throws NotThere               no such file, or one whose version is not written yet
  /// @throws std::runtime_error     what is there is no stream of this layout, or may not be opened for writing
  QUEN_EXPORT explicit Reader(const std::string& name);
  /// Gives its semaphore back.
  QUEN_EXPORT ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  Reader(Reader&&) = delete;
  Reader& operator=(Reader&&) = delete;

  /// What its pixels are.
  [[nodiscard]] QUEN_EXPORT PixelType Type() const;
  /// Pixels along each axis, the fastest (x) first: 1 to 3.
  [[nodiscard]] QUEN_EXPORT std::vector<std::uint32_t> Size() const;
  /// Of a frame's pixels.
  [[nodiscard]] QUEN_EXPORT std::size_t Bytes() const;
  /// The keywords in use, with their values now.
  [[nodiscard]] QUEN_EXPORT std::vector<Keyword> Keywords() const;
  /// Whether it is woken; otherwise all semaphores were taken, and it looks again and again.
  [[nodiscard]] QUEN_EXPORT bool HasSemaphore() const;
  /// How many of the stream's semaphores living readers have, this one among them.
  [[nodiscard]] QUEN_EXPORT std::size_t SemaphoresTaken() const;

  /// Frames written so far. Allocates nothing.
  [[nodiscard]] QUEN_EXPORT std::uint64_t Count() const;

  /// Waits until Count() is not `seen`. Allocates nothing.
  /// @returns Count(), which is `seen` where the time was over first, or a signal came
  QUEN_EXPORT std::uint64_t Wait(std::uint64_t seen, std::chrono::nanoseconds limit);

  /// Copies the pixels that are there. Allocates nothing, but for the values in their first use, and for texts.
  /// @param pixels  Bytes() bytes
  /// @param info    gets what is told with them
  /// @returns whether they and `info` are one whole frame; if not, both hold parts of two, and one reads again
  /// @throws std::invalid_argument  another number of bytes
  QUEN_EXPORT bool Read(gsl::span<std::byte> pixels, FrameInfo& info) const;

  /// Whether this name is no longer, or another file's: the stream is gone, or was made anew.
  [[nodiscard]] QUEN_EXPORT bool IsReplaced() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quen::stream
