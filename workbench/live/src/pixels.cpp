#include "workbench/live/pixels.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>

namespace quen::workbench {
namespace {

/// A number of 16 bits: a sign, 5 bits of the exponent, 10 of the fraction.
struct Half {
  std::uint16_t bits;
};

double ValueOf(Half half) {
  constexpr int kFractionBits = 10;
  constexpr int kMostExponent = 31;
  constexpr int kBias = 15;
  const int exponent = half.bits >> kFractionBits & kMostExponent;
  const int fraction = half.bits & 0x3FF;
  double value = 0.0;
  if (exponent == kMostExponent) {
    value = fraction == 0 ? std::numeric_limits<double>::infinity() : std::numeric_limits<double>::quiet_NaN();
  } else if (exponent == 0) {
    value = std::ldexp(fraction, 1 - kBias - kFractionBits);
  } else {
    value = std::ldexp((1 << kFractionBits) + fraction, exponent - kBias - kFractionBits);
  }
  return (half.bits & 0x8000) != 0 ? -value : value;
}

template <typename Real>
double ValueOf(std::complex<Real> number) {
  return static_cast<double>(std::abs(number));
}

template <typename Number>
double ValueOf(Number number) {
  return static_cast<double>(number);
}

template <typename Pixel>
std::vector<double> Values(gsl::span<const std::byte> pixels) {
  std::vector<double> values(pixels.size() / sizeof(Pixel));
  for (std::size_t k = 0; k < values.size(); ++k) {
    Pixel pixel{};
    std::memcpy(&pixel, pixels.data() + k * sizeof(Pixel), sizeof(Pixel));
    values[k] = ValueOf(pixel);
  }
  return values;
}

struct Kind {
  const char* name;
  std::vector<double> (*values)(gsl::span<const std::byte> pixels);
};

const Kind& KindOf(stream::PixelType type) {
  static const std::array<Kind, 14> kinds = {{{"", nullptr},
                                              {"uint8", &Values<std::uint8_t>},
                                              {"int8", &Values<std::int8_t>},
                                              {"uint16", &Values<std::uint16_t>},
                                              {"int16", &Values<std::int16_t>},
                                              {"uint32", &Values<std::uint32_t>},
                                              {"int32", &Values<std::int32_t>},
                                              {"uint64", &Values<std::uint64_t>},
                                              {"int64", &Values<std::int64_t>},
                                              {"float32", &Values<float>},
                                              {"float64", &Values<double>},
                                              {"complex64", &Values<std::complex<float>>},
                                              {"complex128", &Values<std::complex<double>>},
                                              {"float16", &Values<Half>}}};
  return kinds.at(static_cast<std::size_t>(type));
}

}  // namespace

std::string NameOf(stream::PixelType type) { return KindOf(type).name; }

std::string InWords(const std::vector<std::uint32_t>& size, stream::PixelType type) {
  return fmt::format("{}, {}", fmt::join(size, " x "), NameOf(type));
}

std::vector<double> ValuesOf(stream::PixelType type, gsl::span<const std::byte> pixels) {
  return KindOf(type).values(pixels);
}

}  // namespace quen::workbench
