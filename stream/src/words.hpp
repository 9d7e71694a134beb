#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

/// @file
/// Copies to and from memory that others read or write at the same time, by words of eight bytes. The shared side
/// begins at a whole word and ends with one. Internal to the library.
///
/// Each word is stored with release and loaded with acquire order, which are plain moves on this processor. So who sees
/// one word of a frame, and looks at `write` afterwards, sees that it was raised for that frame, or what came later.

namespace quen::stream {

inline std::atomic_ref<std::uint64_t> Word(std::byte* shared, std::size_t i) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): mapped memory, at a multiple of eight
  return std::atomic_ref<std::uint64_t>(reinterpret_cast<std::uint64_t*>(shared)[i]);
}

/// Calls `copy` with each word's number, its place among the bytes, and how many of them are in it.
template <typename Copy>
void ForEachWord(std::size_t bytes, Copy copy) {
  constexpr std::size_t kBytes = sizeof(std::uint64_t);
  for (std::size_t i = 0; i < bytes / kBytes; ++i) copy(i, i * kBytes, kBytes);
  if (bytes % kBytes != 0) copy(bytes / kBytes, bytes / kBytes * kBytes, bytes % kBytes);
}

inline void CopyToShared(const std::byte* from, std::size_t bytes, std::byte* shared) {
  ForEachWord(bytes, [=](std::size_t i, std::size_t at, std::size_t size) {
    std::uint64_t word = 0;
    std::memcpy(&word, from + at, size);
    Word(shared, i).store(word, std::memory_order_release);
  });
}

inline void CopyFromShared(std::byte* shared, std::size_t bytes, std::byte* to) {
  ForEachWord(bytes, [=](std::size_t i, std::size_t at, std::size_t size) {
    const std::uint64_t word = Word(shared, i).load(std::memory_order_acquire);
    std::memcpy(to + at, &word, size);
  });
}

/// The same of a whole member, which is made of whole words.
template <typename T>
void Store(const T& value, T& shared) {
  static_assert(sizeof(T) % sizeof(std::uint64_t) == 0 && std::is_trivially_copyable_v<T>);
  CopyToShared(std::as_bytes(std::span(&value, 1)).data(), sizeof(T),
               std::as_writable_bytes(std::span(&shared, 1)).data());
}

template <typename T>
T Load(T& shared) {
  static_assert(sizeof(T) % sizeof(std::uint64_t) == 0 && std::is_trivially_copyable_v<T>);
  T value = {};
  CopyFromShared(std::as_writable_bytes(std::span(&shared, 1)).data(), sizeof(T),
                 std::as_writable_bytes(std::span(&value, 1)).data());
  return value;
}

}  // namespace quen::stream
