#pragma once

#include <cmath>

#include "centroiders/src/pixels.hpp"

namespace quen::centroiders {

/// A symmetric matrix of two rows: a spot's variances, or their inverse.
struct Symmetric {
  double xx;
  double xy;
  double yy;

  [[nodiscard]] double Trace() const { return xx + yy; }
  [[nodiscard]] double Determinant() const { return xx * yy - xy * xy; }
  [[nodiscard]] double LeastEigenvalue() const { return 0.5 * Trace() - HalfTheGap(); }
  [[nodiscard]] double LargestEigenvalue() const { return 0.5 * Trace() + HalfTheGap(); }
  [[nodiscard]] Symmetric Inverse() const {
    const double scale = 1.0 / Determinant();
    return {scale * yy, -scale * xy, scale * xx};
  }
  /// This matrix · s · this matrix.
  [[nodiscard]] Symmetric Transform(const Symmetric& s) const {
    const Point first = s * Point{xx, xy};
    const Point second = s * Point{xy, yy};
    return {xx * first.x + xy * first.y, xy * first.x + yy * first.y, xy * second.x + yy * second.y};
  }

  friend Point operator*(const Symmetric& a, const Point& b) {
    return {a.xx * b.x + a.xy * b.y, a.xy * b.x + a.yy * b.y};
  }
  friend Symmetric operator*(double a, const Symmetric& b) { return {a * b.xx, a * b.xy, a * b.yy}; }
  friend Symmetric operator+(const Symmetric& a, const Symmetric& b) { return {a.xx + b.xx, a.xy + b.xy, a.yy + b.yy}; }
  friend Symmetric operator-(const Symmetric& a, const Symmetric& b) { return {a.xx - b.xx, a.xy - b.xy, a.yy - b.yy}; }

 private:
  [[nodiscard]] double HalfTheGap() const { return std::sqrt(0.25 * (xx - yy) * (xx - yy) + xy * xy); }
};

/// The trace of their product.
inline double TraceOfProduct(const Symmetric& a, const Symmetric& b) {
  return a.xx * b.xx + 2.0 * a.xy * b.xy + a.yy * b.yy;
}

}  // namespace quen::centroiders
