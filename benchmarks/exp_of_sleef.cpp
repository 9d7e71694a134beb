#include <immintrin.h>
#include <sleef.h>

#include "benchmarks/exponentials.hpp"

void quen_benchmarks::ExpOfSleef(const std::vector<double>& arguments, std::vector<double>& values) {
  constexpr std::size_t kLanes = 8;
  for (std::size_t k = 0; k + kLanes <= arguments.size(); k += kLanes) {
    _mm512_storeu_pd(values.data() + k, Sleef_expd8_u10avx512f(_mm512_loadu_pd(arguments.data() + k)));
  }
}
