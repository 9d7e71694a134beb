#include "workbench/loop/sweep.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <span>
#include <stdexcept>

#include "workbench/fits/numbers.hpp"
#include "workbench/fits/table.hpp"
#include "workbench/loop/telemetry.hpp"

namespace quen::workbench {
namespace {

constexpr double kMostGains = 1000.0;

struct SweepRow {
  double gain = 0.0;
  double residual_rms = 0.0;
  double disturbance_rms = 0.0;
  double frames = 0.0;
  double lost_spots = 0.0;
};

constexpr std::size_t kReadColumns = 4;  // the others are not in every file
constexpr std::array<Column<SweepRow>, 5> kSweepColumns = {
    {{"gain", "", "", &SweepRow::gain},
     {"residual_rms", "rad", "second half of the run; infinite: diverged", &SweepRow::residual_rms},
     {"disturbance_rms", "rad", "second half of the run", &SweepRow::disturbance_rms},
     {"frames", "", "", &SweepRow::frames},
     {"lost_spots", "", "", &SweepRow::lost_spots}}};

}  // namespace

bool SweepPoint::HasDiverged() const { return std::isinf(residual); }

std::vector<double> ParseSweep(const std::string& text) {
  constexpr std::string_view kName = "gain=";
  const auto refuse = [&](const std::string& why) {
    throw std::invalid_argument(fmt::format("expected gain=FIRST:LAST:STEP{}, found {}", why, text));
  };
  if (!text.starts_with(kName)) refuse("");
  const std::string_view range = std::string_view(text).substr(kName.size());
  const std::size_t first_colon = range.find(':');
  const std::size_t second_colon = range.find(':', first_colon + 1);
  if (first_colon == std::string_view::npos || second_colon == std::string_view::npos) refuse("");
  const auto first = ParseNumber(range.substr(0, first_colon));
  const auto last = ParseNumber(range.substr(first_colon + 1, second_colon - first_colon - 1));
  const auto step = ParseNumber(range.substr(second_colon + 1));
  if (!first || !last || !step) refuse(", three numbers");
  if (!(*first >= 0.0 && *last <= LoopLimits::kGain.highest && *first <= *last))
    refuse(fmt::format(" with 0 <= FIRST <= LAST <= {:g}", LoopLimits::kGain.highest));
  if (!(*step > 0.0 && (*last - *first) / *step < kMostGains))
    refuse(fmt::format(" with a STEP above 0 and {:g} gains at most", kMostGains));

  constexpr double kRounding = 1e-9;  // of a step
  const auto steps = static_cast<int>(std::floor((*last - *first) / *step + kRounding));
  std::vector<double> gains;
  for (int k = 0; k <= steps; ++k) gains.push_back(*first + k * *step);
  return gains;
}

std::optional<SweepPoint> Best(const std::vector<SweepPoint>& points) {
  const auto best = std::ranges::min_element(points, {}, &SweepPoint::residual);
  if (best == points.end() || best->HasDiverged()) return std::nullopt;
  return *best;
}

std::vector<SweepPoint> RunSweep(Camera& camera, const Series& disturbance, const LoopOptions& options,
                                 const std::vector<double>& gains, const std::function<void()>& after_frame) {
  std::vector<SweepPoint> points;
  LoopOptions with_gain = options;
  for (const double gain : gains) {
    with_gain.gain = gain;
    const LoopRun run = RunLoop(camera, disturbance, with_gain, after_frame);
    const LoopSummary summary = SummaryOf(run, options.delay);
    points.push_back({gain, run.has_diverged ? std::numeric_limits<double>::infinity() : summary.after,
                      summary.disturbance, run.records.size(), run.lost_spots});
  }
  return points;
}

std::string SweepFile(const LoopOptions& options, const std::string& disturbance,
                      const std::vector<SweepPoint>& points) {
  std::vector<SweepRow> rows;
  rows.reserve(points.size());
  for (const SweepPoint& point : points) {
    rows.push_back({point.gain, point.residual, point.disturbance, static_cast<double>(point.frames),
                    static_cast<double>(point.lost)});
  }
  MemoryFits fits;
  WriteLoopKeys(AppendRows<SweepRow>(fits, kSweepTable, kSweepColumns, std::move(rows)), options, disturbance);
  return fits.Bytes();
}

namespace {

/// A number of frames, which a file has as any number.
std::size_t FramesOf(const std::string& path, std::size_t row, double frames) {
  constexpr double kMost = 1e9;
  if (frames >= 0.0 && frames <= kMost) return static_cast<std::size_t>(frames);
  throw std::runtime_error(fmt::format("{}: expected 0 to {:g} frames in its table \"{}\", found {:g} in row {}", path,
                                       kMost, kSweepTable, frames, row + 1));
}

}  // namespace

std::vector<SweepPoint> ReadSweep(const InputFile& file) {
  std::vector<SweepPoint> points;
  const std::vector<SweepRow> rows =
      ReadRows<SweepRow>(file, kSweepTable, std::span(kSweepColumns).first(kReadColumns));
  if (static_cast<double>(rows.size()) > kMostGains) {
    throw std::runtime_error(fmt::format("{}: expected {:.0f} rows at most in its table \"{}\", found {}", file.Name(),
                                         kMostGains, kSweepTable, rows.size()));
  }
  points.reserve(rows.size());
  for (const SweepRow& row : rows) {
    points.push_back(
        {row.gain, row.residual_rms, row.disturbance_rms, FramesOf(file.Name(), points.size(), row.frames)});
  }
  if (points.empty()) {
    throw std::runtime_error(fmt::format("{}: its table \"{}\": expected rows, found none", file.Name(), kSweepTable));
  }
  return points;
}

}  // namespace quen::workbench
