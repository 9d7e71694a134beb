#include "workbench/sensor/shapes.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

#include "workbench/fits/numbers.hpp"
#include "workbench/sensor/zernike.hpp"

namespace quen::workbench {
namespace {

struct ZernikeShape {
  const char* name;
  int zernike;  // in Noll's order
};

constexpr std::array<ZernikeShape, 11> kShapes = {{{"flat", 1},
                                                   {"tip", 2},
                                                   {"tilt", 3},
                                                   {"defocus", 4},
                                                   {"oblique-astigmatism", 5},
                                                   {"astigmatism", 6},
                                                   {"vertical-coma", 7},
                                                   {"horizontal-coma", 8},
                                                   {"vertical-trefoil", 9},
                                                   {"oblique-trefoil", 10},
                                                   {"spherical", 11}}};

}  // namespace

std::vector<std::string> ShapeNames() {
  std::vector<std::string> names;
  names.reserve(kShapes.size());
  for (const ZernikeShape& shape : kShapes) names.emplace_back(shape.name);
  return names;
}

NamedShape ParseShape(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string name = text.substr(0, colon);
  if (std::ranges::find(kShapes, name, &ZernikeShape::name) == kShapes.end()) {
    throw std::invalid_argument(fmt::format("expected one of {}, found {}", fmt::join(ShapeNames(), ", "), name));
  }
  const auto pixels = colon == std::string::npos ? std::nullopt : ParseNumber(text.substr(colon + 1));
  if (!pixels) throw std::invalid_argument(fmt::format("expected {}:PIXELS, found {}", name, text));
  return {name, *pixels};
}

Displacements Shape(const NamedShape& named, const quen::shssim::ShsSimulator& simulator) {
  const Zernike zernike(std::ranges::find(kShapes, named.name, &ZernikeShape::name)->zernike);
  const auto& rois = simulator.Rois();
  const std::vector<std::size_t> used = UsedIndices(simulator.RoisUsed());
  double centre_x = 0.0;
  double centre_y = 0.0;
  for (const std::size_t i : used) {
    centre_x += rois[i].x_ref / static_cast<double>(used.size());
    centre_y += rois[i].y_ref / static_cast<double>(used.size());
  }
  double radius = 0.0;
  for (const std::size_t i : used) {
    radius = std::max(radius, std::hypot(rois[i].x_ref - centre_x, rois[i].y_ref - centre_y));
  }

  if (!(radius > 0.0)) {
    throw std::runtime_error(
        "the references of the used sub-apertures are at one point, or not finite: a shape needs a circle around them; "
        "'quen-shs check' tells more of the calibration");
  }
  Displacements shape;
  double steepest = 0.0;
  for (const std::size_t i : used) {
    const Gradient gradient =
        zernike.GradientAt((rois[i].x_ref - centre_x) / radius, (rois[i].y_ref - centre_y) / radius);
    shape.x[i] = gradient.x;
    shape.y[i] = gradient.y;
    steepest = std::max(steepest, std::hypot(gradient.x, gradient.y));
  }
  const double scale = steepest > 0.0 ? named.longest / steepest : 0.0;
  for (const std::size_t i : used) {
    shape.x[i] *= scale;
    shape.y[i] *= scale;
  }
  return shape;
}

}  // namespace quen::workbench
