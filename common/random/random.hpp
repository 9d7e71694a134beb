#pragma once

#include <gsl/span>
#include <random>

#include "defs/export.hpp"

/// @file
/// The library's random numbers: one Mersenne Twister per thread, so that threads neither share a stream nor lock.
///
/// A thread's generator comes to life when the thread first touches it and is seeded then, once, with one 32-bit value
/// of the operating system's entropy source; every run of a process therefore draws other noise. The library never
/// seeds a generator again. A host that wants a repeatable run assigns the generator of the thread that will draw:
///
///     quen::common::random::detail::MersenneTwisterEngine().seed(42);
///
/// and can record or restore the whole state by copying the generator.
///
/// Should the entropy source fail, the thread's first access throws. The next call of MersenneTwisterEngine() tries
/// again; the bare name must not be used before one has succeeded.

namespace quen::common::random::detail {

/// The calling thread's generator, which the first access seeds. MersenneTwisterEngine() is the same, and safe also
/// where seeding has failed before.
/// @throws std::runtime_error  the generator is not seeded yet, and the entropy source cannot be opened or read
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): per-thread state is what this module is for.
QUEN_EXPORT extern thread_local std::mt19937 s_random;

/// The calling thread's generator, seeded first if this is the thread's first access. One thread always gets the same
/// object; no other thread may use it.
/// @throws std::runtime_error  the generator is not seeded yet, and the entropy source cannot be opened or read
QUEN_EXPORT std::mt19937& MersenneTwisterEngine();

}  // namespace quen::common::random::detail

namespace quen::common::random {

/// Draws in bulk: does, many times faster, what this loop does, and leaves the generator where it leaves it.
///
///     for (double& value : values) value = std::uniform_real_distribution<double>(low, high)(generator);
///
/// Allocates nothing. A `low` above `high`, or a NaN, ends the process unless `values` is empty.
QUEN_EXPORT void FillUniform(std::mt19937& generator, double low, double high, gsl::span<double> values);

}  // namespace quen::common::random
