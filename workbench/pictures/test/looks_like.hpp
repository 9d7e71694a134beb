#pragma once

#include <array>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

/// @file
/// Pictures against those that were looked at. These are in workbench/pictures/test/expected, four times reduced along
/// either axis; QUEN_UPDATE_PICTURES=1 writes them anew, to be looked at again.

namespace quen::testing {

/// A picture's shades, 0 to 255: three channels, row by row.
struct Shades {
  int width = 0;
  int height = 0;
  std::vector<double> values;

  [[nodiscard]] double At(int x, int y, int channel) const {
    return values[3 * static_cast<std::size_t>(x + width * y) + static_cast<std::size_t>(channel)];
  }
};

/// How far a picture is from another: the share of the squares that differ by more than a little.
double Difference(const Shades& one, const Shades& other);

/// One square in ten thousand may differ: less than a letter, or a dot of a curve.
inline constexpr double kTolerance = 1e-4;

/// @param name  of the picture that was looked at
/// @param draw  gives a PNG file
void ExpectLooksLike(const std::string& name, const std::function<std::string()>& draw);

/// That something is drawn, whatever the numbers are.
void ExpectDrawn(const std::function<std::string()>& draw);

/// Numbers that only damaged files hold.
inline constexpr std::array kExtremes = {1e308,
                                         -1e308,
                                         std::numeric_limits<double>::max(),
                                         5e-324,
                                         -5e-324,
                                         0.0,
                                         -1.0,
                                         1.0,
                                         std::numeric_limits<double>::infinity(),
                                         -std::numeric_limits<double>::infinity(),
                                         std::numeric_limits<double>::quiet_NaN()};

/// Pairs of them, each number with three others.
std::vector<std::pair<double, double>> ExtremePairs();

}  // namespace quen::testing
