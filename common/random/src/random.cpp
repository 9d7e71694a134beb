#include "common/random/random.hpp"

#include <algorithm>

#include "common/random/uniform_stream.hpp"
#include "common/simd/level.hpp"

namespace quen::common::random::detail {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): tells of the variable below.
thread_local constinit bool is_seeded = false;

std::uint_fast32_t Seed() {
  const std::uint_fast32_t seed = std::random_device("default")();
  is_seeded = true;
  return seed;
}

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables,cert-err58-cpp): see the header.
thread_local std::mt19937 s_random(Seed());

std::mt19937& MersenneTwisterEngine() {
  std::mt19937& generator = s_random;
  // Compilers take a variable for made whose making has thrown. It is a generator of zeros then.
  if (!is_seeded) generator.seed(Seed());
  return generator;
}

}  // namespace quen::common::random::detail

namespace quen::common::random {

void FillUniform(std::mt19937& generator, double low, double high, gsl::span<double> values) {
  if (values.empty()) return;
  const std::uniform_real_distribution<double> range(low, high);
  UniformStream stream(simd::Best(), generator);
  for (std::size_t first = 0; first < values.size(); first += UniformStream::kMaxTake) {
    const gsl::span<double> part = values.subspan(first, std::min(UniformStream::kMaxTake, values.size() - first));
    const double* const canonical = stream.Take(part.size());
    std::transform(canonical, canonical + part.size(), part.begin(),
                   [&](double u) { return u * (range.b() - range.a()) + range.a(); });
  }
}

}  // namespace quen::common::random
