#include "workbench/pictures/src/vector_field.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "workbench/pictures/src/plane.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/geometry.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {
namespace {

constexpr Colour kVector = {0.00, 0.32, 0.60, 1.0};
constexpr Colour kCut = {0.84, 0.10, 0.10, 1.0};

bool IsFinite(const Eigen::Vector2d& vector) { return vector.allFinite(); }

double LargestElement(const VectorField& field) {
  double largest = 0.0;
  for (const Eigen::Vector2d& vector : field.vectors) {
    if (IsFinite(vector)) largest = std::max(largest, vector.cwiseAbs().maxCoeff());
  }
  return largest;
}

/// Lengths over a largest element, whose square may be more than a number holds; those that are not finite are left
/// out.
std::vector<double> Lengths(const VectorField& field, double largest) {
  std::vector<double> lengths;
  for (const Eigen::Vector2d& vector : field.vectors) {
    if (IsFinite(vector)) lengths.push_back((vector / largest).norm());
  }
  return lengths;
}

void Ring(cairo_t* cr, const Eigen::Vector2d& place) {
  constexpr double kRadius = 2.0;
  Use(cr, kInk);
  cairo_new_path(cr);
  cairo_arc(cr, place.x(), place.y(), kRadius, 0.0, 2.0 * std::numbers::pi);
  cairo_stroke(cr);
}

void Cross(cairo_t* cr, const Eigen::Vector2d& place) {
  constexpr double kArm = 3.0;
  Use(cr, kInk);
  for (const double side : {-1.0, 1.0}) {
    cairo_move_to(cr, place.x() - kArm, place.y() - side * kArm);
    cairo_line_to(cr, place.x() + kArm, place.y() + side * kArm);
  }
  cairo_stroke(cr);
}

/// An arrow of at least the length of a dot, with its middle at a point.
void ArrowAround(cairo_t* cr, const Eigen::Vector2d& middle, const Eigen::Vector2d& arrow) {
  constexpr double kLongestHead = 4.5;
  constexpr double kHeadShare = 0.55;
  constexpr double kHeadWidth = 0.45;  // half of it, over its length
  constexpr double kDot = 1.0;
  const double length = std::max(arrow.norm(), kDot);
  const Eigen::Vector2d along = OfLengthOne(arrow);
  const Eigen::Vector2d across(-along.y(), along.x());
  const Eigen::Vector2d tail = middle - 0.5 * length * along;
  const Eigen::Vector2d tip = middle + 0.5 * length * along;
  const double head = std::min(kHeadShare * length, kLongestHead);
  const Eigen::Vector2d neck = tip - head * along;
  cairo_move_to(cr, tail.x(), tail.y());
  cairo_line_to(cr, neck.x(), neck.y());
  cairo_stroke(cr);
  cairo_move_to(cr, tip.x(), tip.y());
  for (const double side : {-kHeadWidth, kHeadWidth}) {
    const Eigen::Vector2d corner = neck + side * head * across;
    cairo_line_to(cr, corner.x(), corner.y());
  }
  cairo_close_path(cr);
  cairo_fill(cr);
}

}  // namespace

Eigen::Vector2d Middle(const Roi& roi) { return {(roi.x_low + roi.x_up - 1) / 2.0, (roi.y_low + roi.y_up - 1) / 2.0}; }

DetectorMap::DetectorMap(const Box& box, const Eigen::Vector2d& middle, double side)
    : corner_(box.left, box.top + box.height),
      origin_(middle - Eigen::Vector2d::Constant(0.5 * side)),
      scale_(box.width / side) {}

DetectorMap::DetectorMap(const Box& box, const std::vector<Roi>& rois) : DetectorMap(box, {0.0, 0.0}, 1.0) {
  Eigen::Vector2d low = Middle(rois.front());
  Eigen::Vector2d high = low;
  for (const Roi& roi : rois) {
    low = low.cwiseMin(Middle(roi));
    high = high.cwiseMax(Middle(roi));
  }
  const double steps = static_cast<double>(kGridSize - 1);
  const double step = std::max(1.0, (high - low).maxCoeff() / steps);
  *this = DetectorMap(box, 0.5 * (low + high), (steps + 1.0) * step);
  step_ = Length(step);
}

Eigen::Vector2d DetectorMap::operator()(const Eigen::Vector2d& point) const {
  const Eigen::Vector2d from_corner = scale_ * (point - origin_);
  return corner_ + Eigen::Vector2d(from_corner.x(), -from_corner.y());
}

VectorField SlopeField(const Overlay& overlay, const Eigen::VectorXd& slopes) {
  VectorField field;
  const Eigen::Index half = slopes.size() / 2;
  Eigen::Index k = 0;
  for (const std::size_t i : UsedIndices(overlay.used)) {
    if (k == half) break;
    field.rois.push_back(overlay.rois[i]);
    field.vectors.emplace_back(slopes(half + k), slopes(k));
    ++k;
  }
  return field;
}

VectorField OffsetField(const std::vector<Roi>& rois) {
  VectorField field = {rois, {}};
  for (const Roi& roi : rois) field.vectors.emplace_back(Eigen::Vector2d(roi.x_ref, roi.y_ref) - Middle(roi));
  return field;
}

double RmsLength(const VectorField& field) {
  const double largest = LargestElement(field);
  if (!(largest > 0.0)) return 0.0;
  const std::vector<double> lengths = Lengths(field, largest);
  double sum = 0.0;
  for (const double length : lengths) sum += length * length;
  return largest * std::sqrt(sum / static_cast<double>(lengths.size()));
}

std::string SizeWords(const VectorField& field, const std::string& unit) {
  const auto lost = static_cast<std::ptrdiff_t>(field.vectors.size()) - std::ranges::count_if(field.vectors, IsFinite);
  const double largest = LargestElement(field);
  if (!(largest > 0.0)) return "all zeros" + NotFinite(lost);
  const double longest = largest * std::ranges::max(Lengths(field, largest));
  return (lost > 0 ? fmt::format("{} not finite", lost) : "RMS " + Short(RmsLength(field))) + ", longest " +
         Short(longest) + " " + unit;
}

void DrawVectorField(cairo_t* cr, const DetectorMap& map, const VectorField& field) {
  constexpr double kPart = 0.97;  // of the arrows are no longer than a long one
  constexpr double kLong = 0.9;   // steps of the grid
  constexpr double kLongest = 1.3;
  const double largest = LargestElement(field);
  const double unit = largest > 0.0 ? LongLength(Lengths(field, largest), kPart) : 1.0;
  cairo_set_line_width(cr, 1.0);
  for (std::size_t k = 0; k < field.rois.size(); ++k) {
    const Eigen::Vector2d place = map(Middle(field.rois[k]));
    const Eigen::Vector2d& vector = field.vectors[k];
    if (!IsFinite(vector)) {
      Cross(cr, place);
    } else if (vector.isZero(0.0)) {
      Ring(cr, place);
    } else {
      const Eigen::Vector2d arrow = kLong * (vector / largest) / unit;
      const bool is_cut = arrow.norm() > kLongest;
      Use(cr, is_cut ? kCut : kVector);
      const double scale = map.Step() * (is_cut ? kLongest / arrow.norm() : 1.0);
      ArrowAround(cr, place, {scale * arrow.x(), -scale * arrow.y()});
    }
  }
}

}  // namespace quen::workbench
