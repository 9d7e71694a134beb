#include "stream/names.hpp"

#include <dirent.h>
#include <log4cplus/loggingmacros.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "common/logging/logging.hpp"
#include "stream/layout.hpp"

namespace quen::stream {
namespace {

constexpr const char* kVariable = "MILK_SHM_DIR";

bool CanBeOpened(const char* folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> opened(opendir(folder), closedir);
  return opened != nullptr;
}

}  // namespace

std::string Folder() {
  if (const char* const wanted = std::getenv(kVariable)) {  // NOLINT(concurrency-mt-unsafe): nobody sets it here
    if (CanBeOpened(wanted)) return wanted;
    LOG4CPLUS_WARN(common::GetLogger(),
                   kVariable << " names " << wanted << ", which is no folder that can be opened; it is passed over");
  }
  return CanBeOpened("/milk/shm") ? "/milk/shm" : "/tmp";
}

std::string PathOf(const std::string& name) {
  if (name.empty() || name.size() > kLongestName || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos) {
    throw std::invalid_argument("the name of a stream must have 1 to " + std::to_string(kLongestName) +
                                " bytes, no slash and no zero byte, found '" + name + "'");
  }
  std::string path = Folder() + "/" + name + ".im.shm";
  if (path.size() > kLongestPath) {
    throw std::invalid_argument("the path of a stream must have at most " + std::to_string(kLongestPath) +
                                " bytes, found " + std::to_string(path.size()) + " in '" + path + "'");
  }
  return path;
}

}  // namespace quen::stream
