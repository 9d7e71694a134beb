#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "common/statistics/quantile.hpp"
#include "workbench/check/src/checks.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

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
  constexpr const char* kKey = "regions.coverage";
  constexpr const char* kBounds = "write bounds in pixels of the whole frame, counted from 0, the upper ones exclusive";
  if (bounds.x_up == 0 || bounds.y_up == 0) {
    return {Verdict::kWrong, kKey, "regions", "none of them has a pixel", kBounds, {}};
  }
  const std::string place = fmt::format("columns {} to {}, rows {} to {} of the frame", bounds.x_low, bounds.x_up - 1,
                                        bounds.y_low, bounds.y_up - 1);
  if (empty > 0) {
    return {Verdict::kWrong, kKey, "regions", fmt::format("{}; {} regions have no pixel", place, empty), kBounds, {}};
  }
  if (shared > 0) {
    return {Verdict::kDoubtful,
            kKey,
            "regions",
            fmt::format("{}; {} pixels are in more than one region: the later one's spot stands there, and spots near "
                        "an edge are measured wrongly",
                        place, shared),
            "make the regions no larger than the step from one to the next",
            {}};
  }
  return {Verdict::kGood,
          kKey,
          "regions",
          bare == 0 ? place + ", without overlaps and gaps"
                    : fmt::format("{}, without overlaps; {} pixels between them are in none", place, bare),
          "",
          {}};
}

// --- References

/// Distances of the references from the middle of their regions, along one axis.
struct Offsets {
  double median;
  double scatter;  ///< RMS
};

Offsets Summary(const std::vector<double>& offsets) {
  const double median = quen::common::UpperMedian(offsets);
  double squares = 0.0;
  for (const double offset : offsets) squares += (offset - median) * (offset - median);
  return {median, std::sqrt(squares / static_cast<double>(offsets.size()))};
}

/// An axis of the frame, by the members of a region that belong to it.
struct Axis {
  const char* name;
  std::uint16_t Roi::*low;
  std::uint16_t Roi::*up;
  std::uint16_t Roi::*size;
  double Roi::*reference;
  double Lattice::*pitch;

  [[nodiscard]] double Offset(const Roi& roi) const { return roi.*reference - (roi.*low + roi.*up - 1) / 2.0; }
};

constexpr Axis kX = {"x", &Roi::x_low, &Roi::x_up, &Roi::width, &Roi::x_ref, &Lattice::pitch_x};
constexpr Axis kY = {"y", &Roi::y_low, &Roi::y_up, &Roi::height, &Roi::y_ref, &Lattice::pitch_y};

/// Moves bounds, and keeps what follows from them.
void MoveBounds(CalibrationContent& content, const Axis& axis, int low, int up) {
  for (Roi& roi : content.rois) {
    roi.*axis.low = static_cast<std::uint16_t>(std::max(0, roi.*axis.low + low));
    roi.*axis.up = static_cast<std::uint16_t>(std::max(0, roi.*axis.up + up));
    roi.*axis.size = static_cast<std::uint16_t>(roi.*axis.up - roi.*axis.low);
    roi.n_pixels = std::uint64_t{roi.width} * roi.height;
  }
}

Correction MovedReferences(const Axis& axis, double by) {
  return {std::abs(by) < 0.75 ? "half_pixel" : "one_pixel", [axis, by](CalibrationContent& content) {
            for (Roi& roi : content.rois) roi.*axis.reference += by;
          }};
}

Correction MovedBounds(const char* mistake, const Axis& axis, int low, int up) {
  return {mistake, [axis, low, up](CalibrationContent& content) { MoveBounds(content, axis, low, up); }};
}

/// How many pixels the regions are smaller than the grid's step, where that is a whole number.
std::optional<int> Gap(const std::vector<Roi>& rois, const std::optional<Lattice>& lattice, const Axis& axis) {
  constexpr double kWhole = 0.03;
  if (!lattice) return std::nullopt;
  const double pitch = (*lattice).*axis.pitch;
  if (std::abs(pitch - std::round(pitch)) > kWhole) return std::nullopt;
  return static_cast<int>(std::lround(pitch)) - rois.front().*axis.size;
}

/// Whether there is room for another pixel between the regions.
bool HasGaps(const std::vector<Roi>& rois, const std::optional<Lattice>& lattice, const Axis& axis) {
  return lattice && (*lattice).*axis.pitch > rois.front().*axis.size + 0.9;
}

/// References off by half a pixel or a whole one, also on top of what a lenslet array has of its own: 0.2 pixels.
Finding CheckOffset(const std::vector<Roi>& rois, const std::optional<Lattice>& lattice, const Axis& axis) {
  constexpr double kOwn = 0.27;
  constexpr double kHalf = 0.75;
  constexpr double kBetween = 0.6;
  constexpr double kWhole = 1.35;
  constexpr double kExactly = 0.05;
  std::vector<double> distances;
  distances.reserve(rois.size());
  for (const Roi& roi : rois) distances.push_back(axis.Offset(roi));
  const Offsets offsets = Summary(distances);
  Finding finding = {Verdict::kGood,
                     fmt::format("references.offset_{}", axis.name),
                     fmt::format("{}_ref", axis.name),
                     fmt::format("{:+.2f} pixels from the middle of the regions, scattered by {:.2f} RMS",
                                 offsets.median, offsets.scatter),
                     "",
                     {}};
  const auto gap = Gap(rois, lattice, axis);
  const bool is_high = offsets.median > 0.0;
  const bool has_odd_gap = gap && *gap % 2 != 0;  // regions that cannot be in the middle of their step
  const double size = std::abs(offsets.median) - (has_odd_gap && std::abs(offsets.median) > kOwn ? 0.5 : 0.0);
  const Correction missing =
      is_high ? MovedBounds("inclusive_bounds", axis, 0, 1) : MovedBounds("counted_from_1", axis, -1, 0);
  if (has_odd_gap && *gap == 1 && std::abs(size) < kOwn && std::abs(offsets.median) > kOwn) {
    finding.verdict = Verdict::kDoubtful;
    finding.text += is_high ? "; a pixel is missing above each region: upper bounds are exclusive here"
                            : "; a pixel is missing below each region: pixels are counted from 0 here";
    finding.advice = is_high ? "add 1 to the upper bounds if they were meant to be inclusive"
                             : "subtract 1 from the lower bounds if they were counted from 1";
    finding.advice += is_high ? "; if they are right, subtract 1 from" : "; if they are right, add 1 to";
    finding.advice +=
        fmt::format(" {}_ref if these were counted otherwise; if both are right, nothing is to be done", axis.name);
    finding.corrections = {missing, MovedReferences(axis, is_high ? -1.0 : 1.0)};
    return finding;
  }
  if (size < kOwn) return finding;
  const bool is_half = size < kHalf;
  if (size >= kWhole) {
    finding.verdict = Verdict::kDoubtful;
    finding.text += ": far from where spots are measured best";
    finding.advice = "compare the references with a flat wavefront's spots";
    return finding;
  }
  const double shift = std::copysign(is_half ? 0.5 : 1.0, offsets.median);
  finding.verdict = std::abs(size - std::abs(shift)) < kExactly ? Verdict::kWrong : Verdict::kDoubtful;
  finding.text += fmt::format(
      "; {} pixel too {}: {}", is_half ? "half a" : "one", is_high ? "high" : "low",
      is_half ? "pixel centres are at integers here, not at halves" : "pixels are counted from 0 here, not from 1");
  finding.advice =
      fmt::format("{} {} {} {}_ref", is_high ? "subtract" : "add", std::abs(shift), is_high ? "from" : "to", axis.name);
  finding.corrections = {MovedReferences(axis, -shift)};
  if (size > kBetween && size < 1.5 - kBetween) {
    finding.advice += fmt::format(", or {}", is_half ? "1" : "0.5");
    finding.corrections.push_back(MovedReferences(axis, std::copysign(is_half ? 1.0 : 0.5, -offsets.median)));
  }
  if (is_half && !gap) {  // steps of no whole number of pixels: regions are half a pixel off on average, either way
    finding.advice += ", or 1 if regions are rounded the other way";
    finding.corrections.push_back(MovedReferences(axis, -2.0 * shift));
  }
  if (is_half && HasGaps(rois, lattice, axis)) {
    finding.advice += is_high ? ", or add 1 to the upper bounds if they are inclusive"
                              : ", or subtract 1 from the lower bounds if they are counted from 1";
    finding.corrections.push_back(missing);
  }
  if (!is_half && !is_high) {
    finding.advice += ", or subtract 1 from the bounds if they are counted from 1";
    finding.corrections.push_back(MovedBounds("counted_from_1", axis, -1, -1));
  }
  return finding;
}

Finding CheckInside(const std::vector<Roi>& rois) {
  constexpr const char* kKey = "references.inside";
  constexpr const char* kSubject = "references";
  for (std::size_t i = 0; i < rois.size(); ++i) {
    const Roi& roi = rois[i];
    if (!std::isfinite(roi.x_ref) || !std::isfinite(roi.y_ref)) {
      return {Verdict::kWrong,
              kKey,
              kSubject,
              fmt::format("that of sub-aperture {} is ({}, {}): no spot is drawn there", i, roi.x_ref, roi.y_ref),
              "give every sub-aperture a reference, also the unused ones",
              {},
              {i}};
    }
    if (std::abs(kX.Offset(roi)) > roi.width / 2.0 || std::abs(kY.Offset(roi)) > roi.height / 2.0) {
      return {Verdict::kWrong,
              kKey,
              kSubject,
              fmt::format("that of sub-aperture {} is at ({:g}, {:g}), outside its columns {} to {}, rows {} to {}", i,
                          roi.x_ref, roi.y_ref, roi.x_low, roi.x_up - 1, roi.y_low, roi.y_up - 1),
              "write bounds and references of the same sub-aperture into a row, both in pixels of the whole frame",
              {},
              {i}};
    }
  }
  return {Verdict::kGood, kKey, kSubject, "inside their regions", "", {}};
}

// --- Flags

Finding CheckFlags(const std::vector<std::uint8_t>& flags) {
  constexpr const char* kKey = "flags.count";
  constexpr const char* kSubject = "usage flags";
  const std::string advice = fmt::format("flag {} sub-apertures, those that the matrices were made for", kNumRoisUsed);
  const auto used = static_cast<std::size_t>(std::ranges::count_if(flags, [](std::uint8_t flag) { return flag != 0; }));
  const std::string text =
      fmt::format("{} of {} are set, expected {} of {}", used, flags.size(), kNumRoisUsed, kNumRois);
  const std::size_t within = UsedIndices(flags).size();  // among the sub-apertures, of which there may be fewer
  if (within < kNumRoisUsed && flags.size() < kNumRois) {
    return {Verdict::kWrong, kKey, kSubject, text + ": ComputeSlopes ends the process where they end", advice, {}};
  }
  if (within < kNumRoisUsed) {
    return {
        Verdict::kWrong,
        kKey,
        kSubject,
        fmt::format("{}: the last {} elements of either block of the slope vector stay 0", text, kNumRoisUsed - within),
        advice,
        {}};
  }
  if (used > kNumRoisUsed) {
    return {Verdict::kWrong,
            kKey,
            kSubject,
            fmt::format("{}: sub-apertures after {}, the {}th used one, are never measured", text,
                        UsedIndices(flags).back(), kNumRoisUsed),
            advice,
            {}};
  }
  if (flags.size() != kNumRois) return {Verdict::kDoubtful, kKey, kSubject, text, advice, {}};
  return {Verdict::kGood, kKey, kSubject, fmt::format("{} of {} are set", used, flags.size()), "", {}};
}

}  // namespace

Findings CheckRegions(const CalibrationContent& content, const std::optional<Lattice>& lattice) {
  Findings findings = {CheckCoverage(content.rois), CheckFlags(content.used), CheckInside(content.rois)};
  if (std::ranges::any_of(findings, IsWrong) || content.rois.empty()) return findings;
  findings.push_back(CheckOffset(content.rois, lattice, kX));
  findings.push_back(CheckOffset(content.rois, lattice, kY));
  return findings;
}

}  // namespace quen::workbench
