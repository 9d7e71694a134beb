#include "common/random/random.hpp"

#include <algorithm>

#include "common/random/uniform_stream.hpp"
#include "common/simd/level.hpp"

namespace quen::common::random::detail {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables,cert-err58-cpp): see the header.
thread_local std::mt19937 s_random(std::random_device("default")());

std::mt19937& MersenneTwisterEngine() { return s_random; }

}  // namespace quen::common::random::detail

namespace quen::common::random {

void FillUniform(std::mt19937& engine, double low, double high, gsl::span<double> values) {
  if (values.empty()) return;
  const std::uniform_real_distribution<double> range(low, high);
  UniformStream stream(simd::Best(), engine, values.size());
  for (std::size_t first = 0; first < values.size(); first += UniformStream::kMaxTake) {
    const gsl::span<double> part = values.subspan(first, std::min(UniformStream::kMaxTake, values.size() - first));
    const double* const canonical = stream.Take(part.size());
    std::transform(canonical, canonical + part.size(), part.begin(),
                   [&](double u) { return u * (range.b() - range.a()) + range.a(); });
  }
  stream.Return();
}

}  // namespace quen::common::random
