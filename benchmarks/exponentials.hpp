#pragma once

#include <vector>

namespace quen_benchmarks {

/// values[k] = e^arguments[k], by the C library.
void ExpOfTheCLibrary(const std::vector<double>& arguments, std::vector<double>& values);

/// The same by SLEEF's vectors for AVX-512, within one unit in the last place. Whole vectors only.
void ExpOfSleef(const std::vector<double>& arguments, std::vector<double>& values);

}  // namespace quen_benchmarks
