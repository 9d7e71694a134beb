#include "fuzz/input.hpp"

#include <fitsio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>

#include "testing/allocations.hpp"
#include "testing/environment.hpp"

namespace quen::fuzz {
namespace {

constexpr std::size_t kConstantRoom = 1'000'000;  // bytes, whatever the input

/// In memory where the system offers that.
std::filesystem::path Parent() {
  const std::filesystem::path memory = "/dev/shm";
  return access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
}

void Require(bool holds, const char* broken) {
  if (holds) return;
  static_cast<void>(std::fprintf(stderr, "%s\n", broken));
  std::abort();
}

}  // namespace

std::string Path(const std::string& name) {
  static const testing::TempDir folder(Parent());
  return folder / name;
}

std::string_view Text(const Bytes& bytes) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): characters are bytes.
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void WriteFile(const std::string& path, const Bytes& bytes) { std::ofstream(path, std::ios::binary) << Text(bytes); }

void Try(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  } catch (const std::runtime_error&) {
  }
}

void TryWithLittleMemory(const std::function<void()>& action) {
  constexpr std::size_t kLargest = 1'000'000;
  const testing::ScarceMemory scarce(kLargest);
  try {
    Try(action);
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
  }
}

void Guarded(std::size_t size, std::size_t factor, const std::function<void()>& action) {
  const std::size_t before = testing::OpenDescriptors();
  testing::ForgetLargestAllocation();
  action();
  fits_clear_errmsg();
  Require(testing::OpenDescriptors() == before, "a descriptor is left open");
  Require(testing::LargestAllocation() <= kConstantRoom + factor * size,
          "an allocation that the input does not justify");
}

}  // namespace quen::fuzz
