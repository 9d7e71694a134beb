#pragma once

#include <semaphore.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "stream/layout.hpp"
#include "stream/src/parts.hpp"

/// @file
/// A stream's file in this process: its descriptor, its memory, and what stands where in it. Internal to the library.

namespace quen::stream {

/// An open file, or none; closed at the end.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] bool IsOpen() const { return number_ >= 0; }
  [[nodiscard]] int Number() const { return number_; }

 private:
  int number_;
};

/// A file's place in its file system, which no other one has as long as it is open.
struct Identity {
  dev_t device = 0;
  ino_t inode = 0;

  friend bool operator==(const Identity&, const Identity&) = default;
};

/// Of the file of this name; {} if there is none.
Identity IdentityOf(const std::string& path);
Identity IdentityOf(const Descriptor& file);

/// All of a file in memory, shared with all who have mapped it.
class SharedFile {
 public:
  /// @throws std::runtime_error  the system refuses: `path` and its reason
  SharedFile(const Descriptor& file, std::size_t bytes, const std::string& path);
  ~SharedFile();
  SharedFile(const SharedFile&) = delete;
  SharedFile& operator=(const SharedFile&) = delete;
  SharedFile(SharedFile&&) = delete;
  SharedFile& operator=(SharedFile&&) = delete;

  /// Finds the parts that follow the metadata, as these tell them.
  void SetParts(const Parts& parts) { parts_ = parts; }

  [[nodiscard]] Metadata& Head() const { return *At<Metadata>(0); }
  [[nodiscard]] std::byte* Pixels() const { return memory_ + parts_.pixels; }
  [[nodiscard]] KeywordEntry& Keyword(std::size_t i) const { return At<KeywordEntry>(parts_.keywords)[i]; }
  [[nodiscard]] sem_t* Semaphore(std::size_t i) const { return At<sem_t>(parts_.semaphores) + i; }
  [[nodiscard]] sem_t* LogSemaphore() const { return At<sem_t>(parts_.log_semaphore); }
  [[nodiscard]] std::int32_t& ReaderPid(std::size_t i) const { return At<std::int32_t>(parts_.reader_pids)[i]; }
  [[nodiscard]] std::int32_t& WriterPid(std::size_t i) const { return At<std::int32_t>(parts_.writer_pids)[i]; }
  [[nodiscard]] Trace& TraceAt(std::size_t i) const { return At<Trace>(parts_.traces)[i]; }

 private:
  template <typename T>
  [[nodiscard]] T* At(std::size_t offset) const {
    return reinterpret_cast<T*>(memory_ + offset);  // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
  }

  std::byte* memory_ = nullptr;
  std::size_t bytes_;
  Parts parts_;
};

static_assert(sizeof(sem_t) == kSemaphoreBytes);

/// A member that others write or read at the same time.
template <typename T>
std::atomic_ref<T> Shared(T& member) {
  return std::atomic_ref<T>(member);
}

}  // namespace quen::stream
