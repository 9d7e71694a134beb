#include "workbench/sensor/frame_measurement.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "workbench/fits/interruption.hpp"
#include "workbench/sensor/corrected_frame.hpp"
#include "workbench/sensor/measurement_file.hpp"

namespace quen::workbench {
namespace {

using quen::centroiders::PixelSign;

PixelRange RangeOf(const Frame& frame) {
  PixelRange range;
  for (const double value : frame.Values()) {
    if (std::isnan(value)) continue;
    range.lowest = std::min(range.lowest, value);
    range.highest = std::max(range.highest, value);
  }
  return range;
}

/// Engines as frames need them, each made once for those that are alike.
class EnginesForFrames {
 public:
  explicit EnginesForFrames(const MeasureOptions& options) : options_(options) {}

  Engine& For(const Frame& frame, PixelSign sign) {
    Made& made = made_[sign];
    if (!made.engine || made.blank != frame.blank) {
      made = {MakeEngine(options_.engine, {sign, WithBlanks(options_.maps, frame), options_.spot}), frame.blank};
    }
    return *made.engine;
  }

 private:
  struct Made {
    std::unique_ptr<Engine> engine;
    std::vector<std::uint8_t> blank;  ///< pixels that it takes for bad ones
  };

  const MeasureOptions& options_;
  std::map<PixelSign, Made> made_;
};

void AddSpots(const Camera& camera, const MeasureOptions& options, MeasuredFrames& measured) {
  for (const std::size_t i : UsedIndices(camera.RoisUsed())) {
    const double spot_x = camera.XSlopes()[i];
    const double spot_y = camera.YSlopes()[i];
    measured.flux.Add(camera.Flux()[i]);
    measured.x.Add(spot_x);
    measured.y.Add(spot_y);
    if (std::abs(spot_x) == options.limit || std::abs(spot_y) == options.limit) ++measured.at_limit;
    if (!(camera.Flux()[i] > 0.0)) ++measured.without_light;
    ++measured.spots;
    if (!options.truth) continue;
    measured.error_x.Add(spot_x - options.truth->x[i]);
    measured.error_y.Add(spot_y - options.truth->y[i]);
  }
}

}  // namespace

void Moments::Add(double value) {
  if (!std::isfinite(value)) {
    ++lost_;
    return;
  }
  sum_ += value;
  square_ += value * value;
  largest_ = std::max(largest_, std::abs(value));
  ++count_;
}

double Moments::Rms() const { return std::sqrt(Over(square_)); }

PixelSign PixelRange::Sign() const { return highest > kHighestSigned ? PixelSign::kUnsigned : PixelSign::kSigned; }

MeasuredFrames MeasureFrames(const FrameReader& frames, Camera& camera, const MeasureOptions& options) {
  RequireSensorSize(frames);
  EnginesForFrames engines(options);
  MeasuredFrames measured;
  HotPixelSearch hot;
  for (std::size_t number = 0; number < frames.Count(); ++number) {
    ThrowIfInterrupted();
    const Frame frame = frames.Read(number);
    const PixelRange range = RangeOf(frame);
    measured.pixels.lowest = std::min(measured.pixels.lowest, range.lowest);
    measured.pixels.highest = std::max(measured.pixels.highest, range.highest);
    const std::vector<double> corrected = CorrectedValues(frame, options.maps);
    const Pedestal pedestal = PedestalOf(corrected, frame.width, camera.Rois(), camera.RoisUsed());
    if (std::abs(pedestal.share) > std::abs(measured.pedestal.share)) measured.pedestal = pedestal;
    const Saturation saturation = SaturationOf(frame, corrected, camera.Rois(), camera.RoisUsed());
    if (saturation.spots > measured.saturation.spots) measured.saturation = saturation;
    hot.Add(corrected, frame.width, camera.Rois(), camera.RoisUsed());
    measured.blank += frame.blank.size() - static_cast<std::size_t>(std::ranges::count(frame.blank, 0));
    camera.Load(frame.pixels);
    camera.ComputeSlopes(engines.For(frame, range.Sign()), options.limit, std::nullopt);
    AddSpots(camera, options, measured);
    measured.slopes.push_back(MeasuredSlopes(camera));
  }
  measured.hot = hot.Found();
  return measured;
}

}  // namespace quen::workbench
