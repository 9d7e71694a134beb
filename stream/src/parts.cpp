#include "stream/src/parts.hpp"

#include <cstdint>
#include <limits>

namespace quen::stream {
namespace {

constexpr std::uint64_t kRingInTime = 0x20001;
constexpr std::uint64_t kRingInTimeBits = 0xF000F;
constexpr std::size_t kPastFrameBytes = 48;

/// Goes through the file, a part after the other.
class Walk {
 public:
  /// Where a part of so many pieces begins.
  std::size_t Next(std::uint64_t bytes_of_one, std::uint64_t pieces) {
    const std::size_t begin = at_;
    std::uint64_t bytes = 0;
    is_too_long_ |= __builtin_mul_overflow(bytes_of_one, pieces, &bytes);
    is_too_long_ |= __builtin_add_overflow(at_, bytes, &at_);
    is_too_long_ |= at_ > std::numeric_limits<std::size_t>::max() - 7;
    at_ = (at_ + 7) / 8 * 8;
    return begin;
  }

  [[nodiscard]] bool IsTooLong() const { return is_too_long_; }

 private:
  std::size_t at_ = 0;
  bool is_too_long_ = false;
};

}  // namespace

std::optional<Parts> PartsOf(const Metadata& metadata) {
  Walk walk;
  Parts parts;
  walk.Next(sizeof(Metadata), 1);
  parts.pixels = walk.Next(metadata.image_bytes, 1);
  parts.keywords = walk.Next(sizeof(KeywordEntry), metadata.keywords);
  parts.semaphores = walk.Next(kSemaphoreBytes, metadata.semaphores);
  parts.log_semaphore = walk.Next(kSemaphoreBytes, 1);
  parts.reader_pids = walk.Next(sizeof(std::int32_t), metadata.semaphores);
  parts.writer_pids = walk.Next(sizeof(std::int32_t), metadata.semaphores);
  parts.controls = walk.Next(sizeof(std::int32_t), metadata.semaphores);
  parts.statuses = walk.Next(sizeof(std::int32_t), metadata.semaphores);
  parts.traces = walk.Next(sizeof(Trace), metadata.traces);
  if ((metadata.image_type & kRingInTimeBits) == kRingInTime) {
    walk.Next(sizeof(std::timespec), metadata.size[2]);
    walk.Next(sizeof(std::timespec), metadata.size[2]);
    walk.Next(sizeof(std::uint64_t), metadata.size[2]);
  }
  if (metadata.past_frames > 0) {
    walk.Next(kPastFrameBytes, metadata.past_frames);
    walk.Next(metadata.image_bytes, metadata.past_frames);
  }
  parts.end = walk.Next(0, 0);
  if (walk.IsTooLong()) return std::nullopt;
  return parts;
}

}  // namespace quen::stream
