#include "workbench/fits/transfer.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

#include "workbench/fits/interruption.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kPiece = 1U << 16U;

[[noreturn]] void ThrowSystemError(int code) { throw std::system_error(code, std::generic_category()); }

/// What a read or write that failed means: to be tried again, or an exception.
void TryAgainOrThrow() {
  const int code = errno;
  ThrowIfInterrupted();
  if (code != EINTR && code != EAGAIN) ThrowSystemError(code);
}

/// Takes in what a read into `piece` gave.
/// @return  whether there may be more
bool Append(std::string& bytes, const std::string& piece, ssize_t count) {
  if (count < 0) {
    TryAgainOrThrow();
  } else {
    bytes.append(piece, 0, static_cast<std::size_t>(count));
  }
  return count != 0;
}

/// @param write_piece  writes some of the bytes that are left, as write(2) does
template <typename WritePiece>
void WritePieces(std::string_view bytes, const WritePiece& write_piece) {
  while (!bytes.empty()) {
    const ssize_t written = write_piece(bytes);
    if (written < 0) {
      TryAgainOrThrow();
    } else {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
  }
}

}  // namespace

void OccupyStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const bool is_input = descriptor == STDIN_FILENO;
    if (fcntl(descriptor, F_GETFD) < 0) static_cast<void>(open("/dev/null", is_input ? O_WRONLY : O_RDONLY));
  }
}

int Open(const std::string& path, int flags, unsigned int mode) {
  int descriptor = -1;
  do {
    ThrowIfInterrupted();
    descriptor = open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

std::string ReadToEnd(int descriptor, std::size_t most) {
  std::string bytes;
  std::string piece(kPiece, '\0');
  while (bytes.size() <= most) {
    WaitFor(descriptor, POLLIN);
    const ssize_t count = read(descriptor, piece.data(), std::min(piece.size(), most + 1 - bytes.size()));
    if (!Append(bytes, piece, count)) break;
  }
  return bytes;
}

std::string ReadAt(int descriptor, std::size_t position, std::size_t size) {
  std::string bytes;
  std::string piece(std::min(size, kPiece), '\0');
  while (bytes.size() < size) {
    const ssize_t count = pread(descriptor, piece.data(), std::min(piece.size(), size - bytes.size()),
                                static_cast<off_t>(position + bytes.size()));
    if (!Append(bytes, piece, count)) break;
  }
  return bytes;
}

void WriteAll(int descriptor, std::string_view bytes) {
  WritePieces(bytes, [&](std::string_view left) {
    WaitFor(descriptor, POLLOUT);
    ThrowIfInterrupted();
    return write(descriptor, left.data(), std::min<std::size_t>(left.size(), PIPE_BUF));
  });
}

void WriteAt(int descriptor, std::string_view bytes, std::size_t position) {
  const std::size_t end = position + bytes.size();
  WritePieces(bytes, [&](std::string_view left) {
    return pwrite(descriptor, left.data(), left.size(), static_cast<off_t>(end - left.size()));
  });
}

void WriteToDisk(int descriptor, std::string_view bytes, std::size_t position, int readable) {
  constexpr std::size_t kMost = 1U << 20U;
  WritePieces(bytes, [&](std::string_view left) {
    ThrowIfInterrupted();
    return write(descriptor, left.data(), std::min(left.size(), kMost));
  });
  while (fsync(descriptor) != 0) TryAgainOrThrow();
  for (std::size_t at = 0; at < bytes.size(); at += kMost) {
    const std::string_view meant = bytes.substr(at, kMost);
    if (ReadAt(readable, position + at, meant.size()) != meant) ThrowSystemError(EIO);
  }
}

}  // namespace quen::workbench
