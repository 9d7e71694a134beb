#pragma once

#include <cstddef>
#include <cstdint>

#include "stream/src/shared_file.hpp"

/// @file
/// Which readers of a stream are alive. Internal to the library.

namespace quen::stream {

bool IsOfLivingProcess(std::int32_t pid);

/// How many of a stream's semaphores such processes have.
std::size_t SemaphoresTaken(const SharedFile& file, std::size_t semaphores);

}  // namespace quen::stream
