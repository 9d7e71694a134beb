#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "fuzz/damage.hpp"

// Half of the fuzzer's mutations damage a card or cut the file; the others are its own.

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room,
                                               unsigned int seed) {
  const quen::fuzz::Bytes input(data, data + size);
  const std::size_t damages = quen::fuzz::CountDamages(input);
  if (seed % 2 == 0 || damages == 0) return LLVMFuzzerMutate(data, size, room);
  const quen::fuzz::Bytes damaged = quen::fuzz::Damaged(input, seed / 2 % damages);
  const std::size_t kept = std::min(damaged.size(), room);
  std::copy_n(damaged.begin(), kept, data);
  return kept;
}
