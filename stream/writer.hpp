#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <gsl/span>
#include <memory>
#include <string>
#include <vector>

#include "defs/export.hpp"
#include "stream/keyword.hpp"
#include "stream/layout.hpp"

/// @file
/// The end of a stream that makes it: a file in shared memory (`stream/layout.hpp`) to which any number of readers
/// attach, now or later, without being known here.
///
/// **One writer.** A lock on the file, held as long as the writer lives and let go by the system if it dies, tells that
/// it is there. A file without a lock is left by one that died, or is of a program that takes none: a new writer
/// unlinks it and makes a new one. Readers of the old file keep it, and see by its inode that it is another.
///
/// **Order.** A frame is written as write ← 1, fence; pixels and keywords; times; cnt0 + 1; write ← 0; then the
/// semaphores are posted. A reader that sees write at 0 and the same cnt0 before and after its copy has one whole
/// frame.
///
/// **Death.** If the process dies within a frame, write stays at 1, so that nobody takes that frame for whole; the file
/// stays, until the next writer replaces it. Readers that wait see nothing: they need a limit for their waiting.

namespace quen::stream {

inline constexpr std::uint16_t kSemaphores = 10;  ///< of a stream that is made here
inline constexpr std::uint16_t kTraces = 10;      ///< the same

/// What a stream is to be.
struct StreamConfig {
  std::string name;                    ///< as for PathOf
  PixelType type = PixelType::kInt16;  ///< of all pixels
  std::vector<std::uint32_t> size;     ///< pixels along 1 to 3 axes, the fastest (x) first; at most kMostElements
  std::vector<Keyword> keywords = {};  ///< with their first values; at most 65535
};

/// A stream and its frames. One thread at a time; no lock.
class Writer {
 public:
  /// Makes the stream: all pixels 0, cnt0 0. The file may be read and written by everyone, whatever the umask, for
  /// readers map it for writing, too; its room is reserved. Allocates.
  /// @throws std::invalid_argument  the configuration: what, what is expected, what was found
  /// @throws std::runtime_error     a living writer has this stream; what has the file's name is no file; the system
  ///                                refuses to make it. What was there is as it was then, but for a stream that nobody
  ///                                has locked
  QUEN_EXPORT explicit Writer(const StreamConfig& config);

  /// Unlinks the file, if it is still the one of this name.
  QUEN_EXPORT ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  Writer(Writer&&) = delete;
  Writer& operator=(Writer&&) = delete;

  /// Puts a frame into the stream and wakes those who wait for it. Copies the pixels once; allocates nothing.
  ///
  /// @param pixels    all of them, fastest axis first; Bytes() bytes
  /// @param acquired  when they were measured, TAI
  /// @param values    the keywords' new values, in their order and of their types; none leaves them as they are
  /// @throws std::invalid_argument  another number of bytes or values, or a value of another type; nothing is written
  ///                                then
  QUEN_EXPORT void Publish(gsl::span<const std::byte> pixels, std::timespec acquired,
                           gsl::span<const KeywordValue> values = {});

  /// By how much Count() goes on with the next frame alone, in place of 1: for those who test what readers make of a
  /// counter that jumps, or stands still. Of a stream's first frame: where it begins.
  QUEN_EXPORT void SetNextStep(std::uint64_t step);

  /// Frames published so far.
  [[nodiscard]] QUEN_EXPORT std::uint64_t Count() const;
  /// How many of the semaphores living readers have. Allocates nothing.
  [[nodiscard]] QUEN_EXPORT std::size_t SemaphoresTaken() const;
  /// Of a frame's pixels.
  [[nodiscard]] QUEN_EXPORT std::size_t Bytes() const;
  /// Of its file.
  [[nodiscard]] QUEN_EXPORT const std::string& Path() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// The time now on the clock of the streams, TAI as the system has it.
QUEN_EXPORT std::timespec Now();

}  // namespace quen::stream
