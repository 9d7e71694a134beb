#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// @file
/// What the fuzzers share: where their files lie, and what must hold after every input.

namespace quen::fuzz {

using Bytes = std::vector<std::uint8_t>;

/// A file name of this process's own, in memory where the system offers that.
std::string Path(const std::string& name);

/// The same bytes as characters.
std::string_view Text(const Bytes& bytes);

void WriteFile(const std::string& path, const Bytes& bytes);

/// Runs `action`, which may throw what the library documents: std::invalid_argument, std::out_of_range or
/// std::runtime_error, the last with derived types. Any other exception ends the fuzzer.
void Try(const std::function<void()>& action);

/// The same for an action that makes room for all rows that a table declares, with little memory to be had: it may also
/// end in std::bad_alloc, or in the std::length_error of a vector.
void TryWithLittleMemory(const std::function<void()>& action);

/// Runs `action` on an input of `size` bytes and ends the process with a sentence if it leaves a descriptor open or
/// asks operator new for a block larger than the input justifies: `factor` bytes for each of its own, and a megabyte.
void Guarded(std::size_t size, std::size_t factor, const std::function<void()>& action);

}  // namespace quen::fuzz
