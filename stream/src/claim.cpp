#include "stream/src/claim.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "stream/src/refusal.hpp"

namespace quen::stream {
namespace {

constexpr mode_t kForEveryone = 0666;

void RequireFile(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw std::runtime_error(path + " is no file: a stream of this name cannot be made; choose another name");
  }
}

/// The file of this name, made if there is none, and locked.
Descriptor Locked(const std::string& path) {
  RequireFile(path);
  Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kForEveryone));
  if (!file.IsOpen()) throw RefusalOfSystem("cannot make " + path);
  if (flock(file.Number(), LOCK_EX | LOCK_NB) == 0) return file;
  if (errno != EWOULDBLOCK) throw RefusalOfSystem("cannot lock " + path);
  throw std::runtime_error("a living program writes the stream " + path + "; end it, or choose another name");
}

bool IsEmpty(const Descriptor& file) {
  struct stat status = {};
  return fstat(file.Number(), &status) == 0 && status.st_size == 0;
}

/// A locked and empty file, which has this name.
Descriptor Made(const std::string& path) {
  while (true) {
    Descriptor file = Locked(path);
    // Between opening and locking, its last owner may have unlinked it.
    if (IdentityOf(file) != IdentityOf(path)) continue;
    if (IsEmpty(file)) return file;
    if (unlink(path.c_str()) != 0) throw RefusalOfSystem("cannot unlink " + path);
  }
}

}  // namespace

Claim::Claim(std::string path) : path_(std::move(path)), file_(Made(path_)) {}

Claim::~Claim() {
  if (IdentityOf(path_) == IdentityOf(file_)) unlink(path_.c_str());
}

void Claim::Reserve(std::size_t bytes) const {
  if (fchmod(file_.Number(), kForEveryone) != 0) throw RefusalOfSystem("cannot let others read " + path_);
  errno = posix_fallocate(file_.Number(), 0, static_cast<off_t>(bytes));
  if (errno != 0) throw RefusalOfSystem("cannot reserve " + std::to_string(bytes) + " bytes for " + path_);
}

}  // namespace quen::stream
