#include "detector/src/gamma.hpp"

#include <cmath>

#include "detector/src/elementary.hpp"
#include "detector/src/normal.hpp"

namespace quen::detector {
namespace {

/// (word + 1/2) · 2⁻³².
double OpenUniform(std::uint32_t word) { return (word + 0.5) * 0x1p-32; }

/// Shape 1 or more.
double LargeGamma(const Stream& stream, std::uint32_t pixel, double shape) {
  const double d = shape - 1.0 / 3;
  const double c = 1.0 / std::sqrt(9.0 * d);
  for (std::uint32_t draw = 1;; ++draw) {
    const Words words = Draw(stream, Stage::kMultiplication, pixel, draw);
    const float radius = IsInTail(words[0]) ? UniformOf(words[0], words[3]) : UniformOf(words[0]);
    const auto x = static_cast<double>(NormalsOf(radius, words[1]).first);
    const double root = 1.0 + c * x;
    if (root <= 0.0) continue;
    const double v = root * root * root;
    if (Log(OpenUniform(words[2])) < 0.5 * x * x + d - d * v + d * Log(v)) return d * v;
  }
}

}  // namespace

double GammaNumber(const Stream& stream, std::uint32_t pixel, double shape) {
  if (shape >= 1.0) return LargeGamma(stream, pixel, shape);
  const double u = OpenUniform(Draw(stream, Stage::kMultiplication, pixel)[0]);
  const double power = Log(u) / shape;
  return power < -700.0 ? 0.0 : LargeGamma(stream, pixel, shape + 1.0) * Exp(power);
}

}  // namespace quen::detector
