#include <algorithm>
#include <cmath>

#include "benchmarks/exponentials.hpp"

void quen_benchmarks::ExpOfTheCLibrary(const std::vector<double>& arguments, std::vector<double>& values) {
  std::ranges::transform(arguments, values.begin(), [](double x) { return std::exp(x); });
}
