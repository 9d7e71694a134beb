#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "workbench/check/check.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

using quen::basesim::kFrameHeight;
using quen::basesim::kFrameWidth;
using quen::basesim::kNumRois;
using quen::image_processing::Roi;
using quen::shssim::kNumRoisUsed;

// --- Regions

struct Bounds {
  std::size_t x_low = kFrameWidth;
  std::size_t x_up = 0;
  std::size_t y_low = kFrameHeight;
  std::size_t y_up = 0;
};

/// How many regions each pixel of the frame is in.
std::vector<int> Coverage(const std::vector<Roi>& rois) {
  std::vector<int> coverage(kFrameWidth * kFrameHeight, 0);
  for (const Roi& roi : rois) {
    for (std::size_t y = roi.y_low; y < roi.y_up; ++y) {
      for (std::size_t x = roi.x_low; x < roi.x_up; ++x) ++coverage[x + kFrameWidth * y];
    }
  }
  return coverage;
}

Bounds BoundsOf(const std::vector<Roi>& rois) {
  Bounds bounds;
  for (const Roi& roi : rois) {
    bounds.x_low = std::min<std::size_t>(bounds.x_low, roi.x_low);
    bounds.x_up = std::max<std::size_t>(bounds.x_up, roi.x_up);
    bounds.y_low = std::min<std::size_t>(bounds.y_low, roi.y_low);
    bounds.y_up = std::max<std::size_t>(bounds.y_up, roi.y_up);
  }
  return bounds;
}

Finding CheckCoverage(const std::vector<Roi>& rois) {
  const std::vector<int> coverage = Coverage(rois);
  const Bounds bounds = BoundsOf(rois);
  std::size_t shared = 0;
  std::size_t bare = 0;
  for (std::size_t y = bounds.y_low; y < bounds.y_up; ++y) {
    for (std::size_t x = bounds.x_low; x < bounds.x_up; ++x) {
      const int regions = coverage[x + kFrameWidth * y];
      if (regions > 1) ++shared;
      if (regions == 0) ++bare;
    }
  }
  const auto empty = std::ranges::count(rois, 0U, &Roi::n_pixels);
  if (bounds.x_up == 0 || bounds.y_up == 0) return {Verdict::kWrong, "regions", "none of them has a pixel"};
  const std::string place = fmt::format("columns {} to {}, rows {} to {} of the frame", bounds.x_low, bounds.x_up - 1,
                                        bounds.y_low, bounds.y_up - 1);
  if (empty > 0) return {Verdict::kWrong, "regions", fmt::format("{}; {} regions have no pixel", place, empty)};
  if (shared > 0) {
    return {
        Verdict::kDoubtful, "regions",
        fmt::format("{}; {} pixels are in more than one region: the later one's spot stands there, and spots near an "
                    "edge are measured wrongly",
                    place, shared)};
  }
  return {Verdict::kGood, "regions",
          bare == 0 ? place + ", without overlaps and gaps"
                    : fmt::format("{}, without overlaps; {} pixels between them are in none", place, bare)};
}

// --- References

/// Distances of the references from the middle of their regions, along one axis.
struct Offsets {
  double median;
  double spread;  ///< from the median to the farthest
};

Offsets Summary(std::vector<double> offsets) {
  const auto middle = offsets.begin() + static_cast<std::ptrdiff_t>(offsets.size() / 2);
  std::ranges::nth_element(offsets, middle);
  const double median = *middle;
  double spread = 0.0;
  for (const double offset : offsets) spread = std::max(spread, std::abs(offset - median));
  return {median, spread};
}

std::string ShiftName(const char* axis, const Offsets& offsets) {
  const bool is_half = std::abs(offsets.median) < 0.75;
  return fmt::format(
      "{} are {} pixel too {}: {}", axis, is_half ? "half a" : "one", offsets.median > 0 ? "high" : "low",
      is_half ? "pixel centres are at integers here, not at halves" : "pixels are counted from 0 here, not from 1");
}

/// Whether the offsets look like a shift by half a pixel or a whole one.
bool IsShift(const Offsets& offsets) {
  constexpr double kTolerance = 0.02;  // pixels; the middle of a region is an integer or a half
  const double size = std::abs(offsets.median);
  return std::abs(size - 0.5) < kTolerance || std::abs(size - 1.0) < kTolerance;
}

Finding CheckReferences(const std::vector<Roi>& rois) {
  constexpr const char* kSubject = "references";
  std::vector<double> x;
  std::vector<double> y;
  for (std::size_t i = 0; i < rois.size(); ++i) {
    const Roi& roi = rois[i];
    if (!std::isfinite(roi.x_ref) || !std::isfinite(roi.y_ref)) {
      return {Verdict::kWrong, kSubject,
              fmt::format("that of sub-aperture {} is ({}, {}): no spot is drawn there", i, roi.x_ref, roi.y_ref)};
    }
    x.push_back(roi.x_ref - (roi.x_low + roi.x_up - 1) / 2.0);
    y.push_back(roi.y_ref - (roi.y_low + roi.y_up - 1) / 2.0);
    if (std::abs(x[i]) > roi.width / 2.0 || std::abs(y[i]) > roi.height / 2.0) {
      return {Verdict::kWrong, kSubject,
              fmt::format("that of sub-aperture {} is at ({:g}, {:g}), outside its columns {} to {}, rows {} to {}", i,
                          roi.x_ref, roi.y_ref, roi.x_low, roi.x_up - 1, roi.y_low, roi.y_up - 1)};
    }
  }
  const Offsets along_x = Summary(x);
  const Offsets along_y = Summary(y);
  const std::string text =
      fmt::format("inside their regions, ({:+.2f}, {:+.2f}) pixels from the middle, give or take {:.2f}",
                  along_x.median, along_y.median, std::max(along_x.spread, along_y.spread));
  std::string shifts;
  constexpr double kSame = 0.02;  // pixels
  bool is_everywhere = false;
  for (const auto& [axis, offsets] : {std::pair("x_ref", along_x), std::pair("y_ref", along_y)}) {
    if (!IsShift(offsets)) continue;
    shifts += "; " + ShiftName(axis, offsets);
    is_everywhere = is_everywhere || offsets.spread < kSame;
  }
  if (shifts.empty()) return {Verdict::kGood, kSubject, text};
  return {is_everywhere ? Verdict::kWrong : Verdict::kDoubtful, kSubject, text + shifts};
}

// --- Flags

Finding CheckFlags(const std::vector<std::uint8_t>& flags) {
  constexpr const char* kSubject = "usage flags";
  const auto used = static_cast<std::size_t>(std::ranges::count_if(flags, [](std::uint8_t flag) { return flag != 0; }));
  const std::string text =
      fmt::format("{} of {} are set, expected {} of {}", used, flags.size(), kNumRoisUsed, kNumRois);
  const std::size_t within = UsedIndices(flags).size();  // among the sub-apertures, of which there may be fewer
  if (within < kNumRoisUsed && flags.size() < kNumRois) {
    return {Verdict::kWrong, kSubject, text + ": ComputeSlopes ends the process where they end"};
  }
  if (within < kNumRoisUsed) {
    return {Verdict::kWrong, kSubject,
            fmt::format("{}: the last {} elements of either block of the slope vector stay 0", text,
                        kNumRoisUsed - within)};
  }
  if (used > kNumRoisUsed) {
    return {Verdict::kWrong, kSubject,
            fmt::format("{}: sub-apertures after {}, the {}th used one, are never measured", text,
                        UsedIndices(flags).back(), kNumRoisUsed)};
  }
  if (flags.size() != kNumRois) return {Verdict::kDoubtful, kSubject, text};
  return {Verdict::kGood, kSubject, fmt::format("{} of {} are set", used, flags.size())};
}

}  // namespace

Findings CheckRegions(const quen::shssim::ShsSimulator& simulator) {
  return {CheckCoverage(simulator.Rois()), CheckReferences(simulator.Rois()), CheckFlags(simulator.RoisUsed())};
}

}  // namespace quen::workbench
