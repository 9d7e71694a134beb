#pragma once

#include <cstddef>
#include <optional>

#include "stream/layout.hpp"

/// @file
/// Where in the file the parts of a stream begin.

namespace quen::stream {

inline constexpr std::size_t kSemaphoreBytes = 32;

/// Offsets of the parts, in bytes from the beginning of the file.
struct Parts {
  std::size_t pixels = 0;
  std::size_t keywords = 0;
  std::size_t semaphores = 0;
  std::size_t log_semaphore = 0;
  std::size_t reader_pids = 0;
  std::size_t writer_pids = 0;
  std::size_t controls = 0;
  std::size_t statuses = 0;
  std::size_t traces = 0;
  std::size_t end = 0;  ///< the size of the file
};

/// From the counts in the metadata alone; none if the file would have more bytes than a number holds.
std::optional<Parts> PartsOf(const Metadata& metadata);

}  // namespace quen::stream
