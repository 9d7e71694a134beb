#include "stream/src/living_readers.hpp"

#include <signal.h>

#include <cerrno>

namespace quen::stream {

bool IsOfLivingProcess(std::int32_t pid) { return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM); }

std::size_t SemaphoresTaken(const SharedFile& file, std::size_t semaphores) {
  std::size_t taken = 0;
  for (std::size_t i = 0; i < semaphores; ++i) {
    if (IsOfLivingProcess(Shared(file.ReaderPid(i)).load())) ++taken;
  }
  return taken;
}

}  // namespace quen::stream
