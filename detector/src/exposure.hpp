#pragma once

#include <cstdint>

#include "common/simd/level.hpp"
#include "detector/src/philox.hpp"
#include "detector/src/plan.hpp"

/// @file
/// The stages of an exposure, each for the kChunk pixels from `first` on, a multiple of kChunk. At every level the same
/// bits.

namespace quen::detector {

/// Where the light of a value ends, so that nothing is infinite.
inline constexpr double kMostLight = 1e18;

/// The read noise of a pixel in a frame, of a read noise of 1.
///
/// The numbers of pixels 16 apart, in a group of 64, are made of one block, a pair of normal deviates from two words.
double ReadDeviate(const Stream& stream, std::uint32_t pixel);

/// λ = response · value + dark, from 0 to 10⁹.
void Expect(common::simd::Level level, const Plan& plan, std::size_t first, const double* values, double* lambda);

/// λ becomes n, in place.
void CountPhotons(common::simd::Level level, const Stream& stream, std::size_t first, double* electrons);

/// At most `full_well`.
void Hold(double full_well, double* electrons);

/// Electron multiplication.
void Multiply(const Stream& stream, std::size_t first, double gain, double* electrons);

/// Adds read noise of so many electrons RMS.
void AddReadNoise(common::simd::Level level, const Stream& stream, std::size_t first, double rms, double* electrons);

/// Electrons become counts.
void Convert(common::simd::Level level, const Plan& plan, std::size_t first, const double* electrons,
             std::uint16_t* counts);

/// A whole frame.
void Expose(common::simd::Level level, const Plan& plan, const double* values, std::uint64_t frame_number,
            std::uint16_t* frame);

}  // namespace quen::detector
