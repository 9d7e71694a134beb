#include "workbench/pictures/src/check_panels.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "workbench/pictures/src/matrix_cells.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

constexpr Colour kRegion = {0.25, 0.60, 0.90, 0.30};
constexpr Colour kRegionEdge = {0.10, 0.40, 0.75, 1.0};
constexpr Colour kReference = {0.84, 0.10, 0.10, 1.0};
constexpr Colour kBeyond = {0.90, 0.60, 0.00, 1.0};

Panel ModePanel(const char* matrix, std::size_t mode, const char* unit, const CalibrationContent& content,
                const Eigen::VectorXd& slopes) {
  return FieldPanel(fmt::format("{} mode {}", matrix, mode), content.rois,
                    SlopeField({content.rois, content.used, std::nullopt}, slopes), unit);
}

/// The pixels of a region; pixel centres are at integers.
void TraceRegion(cairo_t* cr, const DetectorMap& map, const Roi& roi) {
  const Eigen::Vector2d corner = map({roi.x_low - 0.5, roi.y_up - 0.5});
  cairo_rectangle(cr, corner.x(), corner.y(), map.Length(roi.width), map.Length(roi.height));
}

/// A square of almost a step around the middle of a region.
void FillCell(cairo_t* cr, const DetectorMap& map, const Roi& roi) {
  constexpr double kShare = 0.86;
  const Eigen::Vector2d middle = map(Middle(roi));
  const double side = kShare * map.Step();
  cairo_rectangle(cr, middle.x() - 0.5 * side, middle.y() - 0.5 * side, side, side);
  cairo_fill(cr);
}

/// RMS over all modes of how far a spot moves; not finite if one of its slopes is not.
double Movement(const Matrix& m2s, Eigen::Index k) {
  const Eigen::Index half = m2s.rows() / 2;
  return std::hypot(m2s.row(k).stableNorm(), m2s.row(half + k).stableNorm()) /
         std::sqrt(static_cast<double>(m2s.cols()));
}

/// From light blue for the least to dark blue for the most.
Colour MovementColour(double share) { return {0.82 - 0.82 * share, 0.90 - 0.62 * share, 0.97 - 0.42 * share, 1.0}; }

void DrawFlags(cairo_t* cr, const DetectorMap& map, const CalibrationContent& content,
               const std::vector<double>& movements, double most) {
  std::size_t k = 0;
  for (std::size_t i = 0; i < content.rois.size(); ++i) {
    const bool is_flagged = i < content.used.size() && content.used[i] != 0;
    Use(cr, kGrid);
    if (is_flagged && k < movements.size()) {
      const double movement = movements[k++];
      Use(cr, movement > 0.0 && std::isfinite(movement) ? MovementColour(movement / most) : kReference);
    } else if (is_flagged) {
      Use(cr, kBeyond);
    }
    FillCell(cr, map, content.rois[i]);
  }
}

constexpr int kAround = 3;  // pixels beside a region

/// Of the square in which a region and its reference are, unless that is very far away.
double SideAround(const Roi& roi) {
  constexpr double kFarthest = 100.0;
  const Eigen::Vector2d offset = Eigen::Vector2d(roi.x_ref, roi.y_ref) - Middle(roi);
  const double to_reference = offset.allFinite() ? std::min(offset.cwiseAbs().maxCoeff(), kFarthest) : 0.0;
  return 2.0 * (std::max(0.5 * std::max(roi.width, roi.height), to_reference) + kAround);
}

void DrawPixels(cairo_t* cr, const DetectorMap& map, const Roi& roi) {
  constexpr double kHalf = 0.5;
  Use(cr, kGrid);
  cairo_set_line_width(cr, kHalf);
  for (int x = roi.x_low - kAround; x <= roi.x_up + kAround; ++x) {
    const Eigen::Vector2d low = map({x - kHalf, roi.y_low - kAround - kHalf});
    const Eigen::Vector2d high = map({x - kHalf, roi.y_up + kAround - kHalf});
    cairo_move_to(cr, low.x(), low.y());
    cairo_line_to(cr, high.x(), high.y());
  }
  for (int y = roi.y_low - kAround; y <= roi.y_up + kAround; ++y) {
    const Eigen::Vector2d left = map({roi.x_low - kAround - kHalf, y - kHalf});
    const Eigen::Vector2d right = map({roi.x_up + kAround - kHalf, y - kHalf});
    cairo_move_to(cr, left.x(), left.y());
    cairo_line_to(cr, right.x(), right.y());
  }
  cairo_stroke(cr);
}

/// The middle of a region, and its reference.
void DrawMiddle(cairo_t* cr, const DetectorMap& map, const Roi& roi) {
  constexpr double kArm = 9.0;
  constexpr double kDot = 3.5;
  const Eigen::Vector2d middle = map(Middle(roi));
  Use(cr, kRegionEdge);
  cairo_move_to(cr, middle.x() - kArm, middle.y());
  cairo_line_to(cr, middle.x() + kArm, middle.y());
  cairo_move_to(cr, middle.x(), middle.y() - kArm);
  cairo_line_to(cr, middle.x(), middle.y() + kArm);
  cairo_stroke(cr);
  if (!std::isfinite(roi.x_ref) || !std::isfinite(roi.y_ref)) return;
  const Eigen::Vector2d reference = map({roi.x_ref, roi.y_ref});
  Use(cr, kReference);
  cairo_arc(cr, reference.x(), reference.y(), kDot, 0.0, 2.0 * std::numbers::pi);
  cairo_fill(cr);
}

}  // namespace

Panel M2sMode(const CalibrationContent& content, std::size_t mode) {
  return ModePanel("M2S", mode, "px/rad", content, content.m2s.col(static_cast<Eigen::Index>(mode)));
}

Panel CmMode(const CalibrationContent& content, std::size_t mode) {
  return ModePanel("CM", mode, "rad/px", content, content.cm.row(static_cast<Eigen::Index>(mode)));
}

Panel Product(const CalibrationContent& content) {
  const Matrix product = content.cm * content.m2s;
  const double largest = LargestMagnitude(product);
  return {"CM * M2S", CellWords(largest),
          [product, largest](cairo_t* cr, const Box& box) { PaintCells(cr, box, product, largest); }};
}

Panel Offsets(const CalibrationContent& content) {
  return FieldPanel("reference offsets", content.rois, OffsetField(content.rois), "px");
}

Panel RegionAt(const CalibrationContent& content, std::size_t i) {
  return {fmt::format("region {}", i), "cross: its middle; dot: its reference",
          [rois = content.rois, i](cairo_t* cr, const Box& box) {
            const Roi& roi = rois[i];
            const DetectorMap map(box, Middle(roi), SideAround(roi));
            DrawPixels(cr, map, roi);
            cairo_set_line_width(cr, 1.5);
            for (const Roi& other : rois) {
              Use(cr, kRegionEdge);
              TraceRegion(cr, map, other);
              cairo_stroke(cr);
            }
            Use(cr, kRegion);
            TraceRegion(cr, map, roi);
            cairo_fill(cr);
            DrawMiddle(cr, map, roi);
          }};
}

Panel Coverage(const CalibrationContent& content) {
  return {"regions", "darker where they overlap", [rois = content.rois](cairo_t* cr, const Box& box) {
            const DetectorMap map(box, rois);
            Use(cr, kRegion);
            for (const Roi& roi : rois) {
              TraceRegion(cr, map, roi);
              cairo_fill(cr);
            }
          }};
}

Panel Flags(const CalibrationContent& content) {
  std::vector<double> movements;
  double most = 0.0;
  const std::size_t used = UsedIndices(content.used).size();
  for (std::size_t k = 0; k < used; ++k) {
    movements.push_back(Movement(content.m2s, static_cast<Eigen::Index>(k)));
    if (std::isfinite(movements.back())) most = std::max(most, movements.back());
  }
  const auto still = std::ranges::count_if(movements, [](double m) { return !(m > 0.0) || !std::isfinite(m); });
  const auto beyond = std::ranges::count_if(content.used, [](std::uint8_t flag) { return flag != 0; }) -
                      static_cast<std::ptrdiff_t>(used);
  std::string below = "darker: modes move the spot farther";
  if (still > 0) below = fmt::format("red: no mode moves the spot ({})", still);
  if (beyond > 0) below = fmt::format("orange: after the {}th flag ({})", kNumRoisUsed, beyond);
  return {"usage flags", below, [content, movements, most](cairo_t* cr, const Box& box) {
            DrawFlags(cr, DetectorMap(box, content.rois), content, movements, most);
          }};
}

}  // namespace quen::workbench
