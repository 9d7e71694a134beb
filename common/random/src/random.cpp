#include "common/random/random.hpp"

namespace quen::common::random::detail {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables,cert-err58-cpp): see the header.
thread_local std::mt19937 s_random(std::random_device("default")());

std::mt19937& MersenneTwisterEngine() { return s_random; }

}  // namespace quen::common::random::detail
