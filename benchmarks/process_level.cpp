#include "benchmarks/process_level.hpp"

namespace quen_benchmarks {
namespace {

using quen::common::simd::Level;

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables,cert-err58-cpp): so is what it stands for.
Level process_level = quen::common::simd::Highest();

}  // namespace

void SetProcessLevel(Level level) { process_level = level; }

}  // namespace quen_benchmarks

/// In the place of the libraries' own, which decide once: a program's symbols come before those of its libraries.
quen::common::simd::Level quen::common::simd::Best() { return quen_benchmarks::process_level; }
