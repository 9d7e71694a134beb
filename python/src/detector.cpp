#include "python/src/detector.hpp"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "detector/maps.hpp"
#include "python/src/arrays.hpp"
#include "python/src/guards.hpp"
#include "workbench/detector/description.hpp"

namespace quen::python {
namespace {

using detector::DetectorConfig;
using detector::PixelState;

std::vector<PixelState> StatesOf(const py::object& map) {
  if (map.is_none()) return {};
  const auto array = Input<std::uint8_t>(map, "bad_pixels", FrameShape());
  std::vector<PixelState> states(static_cast<std::size_t>(array.size()));
  std::transform(array.data(), array.data() + array.size(), states.begin(),
                 [](std::uint8_t state) { return PixelState{state}; });
  return states;
}

/// An array of a map, None for none.
py::object ArrayOf(const std::vector<double>& map) {
  if (map.empty()) return py::none();
  py::array_t<double> array(FrameShape());
  std::ranges::copy(map, array.mutable_data());
  return array;
}

py::object ArrayOf(const std::vector<PixelState>& states) {
  if (states.empty()) return py::none();
  py::array_t<std::uint8_t> array(FrameShape());
  std::ranges::transform(states, array.mutable_data(),
                         [](PixelState state) { return static_cast<std::uint8_t>(state); });
  return array;
}

std::unique_ptr<ReadyDetector> Made(double electrons_per_unit, double background, double dark, bool photon_noise,
                                    double em_gain, double read_noise, std::optional<double> full_well, double gain,
                                    double offset, int bits, const py::object& flat_map, const py::object& dark_map,
                                    const py::object& offset_map, const py::object& bad_pixels,
                                    const py::object& bad_pixel_levels, std::uint64_t seed) {
  const DetectorConfig config = {.electrons_per_unit = electrons_per_unit,
                                 .background = background,
                                 .dark = dark,
                                 .photon_noise = photon_noise,
                                 .em_gain = em_gain,
                                 .read_noise = read_noise,
                                 .full_well = full_well,
                                 .gain = gain,
                                 .offset = offset,
                                 .bits = bits,
                                 .flat_map = MapOf(flat_map, "flat_map"),
                                 .dark_map = MapOf(dark_map, "dark_map"),
                                 .offset_map = MapOf(offset_map, "offset_map"),
                                 .bad_pixels = StatesOf(bad_pixels),
                                 .bad_pixel_levels = MapOf(bad_pixel_levels, "bad_pixel_levels"),
                                 .seed = seed};
  return std::make_unique<ReadyDetector>(config);
}

py::array Expose(const ReadyDetector& camera, const py::object& values, std::uint64_t frame_number,
                 const py::object& out) {
  const auto expected = Input<double>(values, "values", FrameShape());
  auto frame = out.is_none() ? py::array_t<std::uint16_t, py::array::c_style>(FrameShape())
                             : Output<std::uint16_t>(out, "out", FrameShape());
  const gsl::span<std::uint16_t> counts = Out(frame);
  {
    const WithoutLock unlocked;
    camera.detector.Expose(In(expected), frame_number, counts);
  }
  return frame;
}

/// The members of a description, by their names.
py::dict Described(const std::string& file) {
  const workbench::DetectorDescription description = WithFiles([&] {
    const WithoutLock unlocked;
    const FilesInUse in_use;
    return workbench::ReadDetector(file);
  });
  const DetectorConfig& config = description.config;
  py::dict members;
  members["electrons_per_unit"] = config.electrons_per_unit;
  members["background"] = config.background;
  members["dark"] = config.dark;
  members["photon_noise"] = config.photon_noise;
  members["em_gain"] = config.em_gain;
  members["read_noise"] = config.read_noise;
  members["full_well"] = config.full_well;
  members["gain"] = config.gain;
  members["offset"] = config.offset;
  members["bits"] = config.bits;
  members["flat_map"] = ArrayOf(config.flat_map);
  members["dark_map"] = ArrayOf(config.dark_map);
  members["offset_map"] = ArrayOf(config.offset_map);
  members["bad_pixels"] = ArrayOf(config.bad_pixels);
  members["bad_pixel_levels"] = ArrayOf(config.bad_pixel_levels);
  return members;
}

py::tuple DrawHotPixels(std::uint64_t seed, double per_million, double mean_level) {
  DetectorConfig config;
  detector::AddHotPixels(seed, per_million, mean_level, config);
  return py::make_tuple(ArrayOf(config.bad_pixels), ArrayOf(config.bad_pixel_levels));
}

}  // namespace

void BindDetector(py::module_& module) {
  py::class_<ReadyDetector> ready_made(module, "Detector");
  ready_made.def(py::init(&Made)).def("expose", &Expose);
  RefusePickling(ready_made);
  module.def("described_detector", &Described);
  module.def("draw_flat_map", [](std::uint64_t seed, double rms) { return ArrayOf(detector::DrawFlatMap(seed, rms)); });
  module.def("draw_hot_pixels", &DrawHotPixels);
}

}  // namespace quen::python
