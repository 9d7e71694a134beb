#include "python/src/simulator.hpp"

#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/filesystem/filesystem.hpp"
#include "python/src/arrays.hpp"
#include "python/src/engines.hpp"
#include "python/src/guards.hpp"
#include "workbench/pictures/frame_picture.hpp"
#include "workbench/pictures/stretch.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/overlay.hpp"

namespace quen::python {
namespace {

using workbench::kNumModes;
using workbench::kNumRois;
using workbench::kNumRoisUsed;
using workbench::kNumSlopes;
using Random = std::mt19937;

/// @throws Python's FileNotFoundError  a file of the calibration is nowhere to be found
std::string Found(const char* file) {
  try {
    return common::FileSystem::FindFileOrThrow(file, {});
  } catch (const std::logic_error&) {  // which is how the library says that INTROOT is not set
    ThrowOsError(std::string(file) +
                     " is neither along CFGPATH nor below the current folder, and INTROOT is not set; "
                     "give the folder of a calibration, as calibrate makes one",
                 PyExc_FileNotFoundError);
  } catch (const std::runtime_error& error) {
    ThrowOsError(error.what(), PyExc_FileNotFoundError);
  }
}

/// The files of a calibration that is found as the library finds it.
std::vector<workbench::InputFile> FoundFiles() {
  std::vector<workbench::InputFile> files;
  for (const char* const name : workbench::kCalibrationFiles) {
    const std::string file = Found(name);
    WithFiles([&] { files.emplace_back(file, workbench::Packed::kAsItIs); });
  }
  return files;
}

std::string FlawOf(const workbench::Camera& camera, const std::string& folder) {
  try {
    workbench::RequireFlags(camera, folder);
    return {};
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

// --- The generator's state: its words, and how many of them are used up

constexpr std::size_t kWords = Random::state_size;

py::tuple StateOf(Simulator& self) {
  const InUse in_use(self.is_in_use, "Simulator");
  std::ostringstream text;  // the standard's own form: the words and, in this library, the position after them
  text << self.generator;
  std::istringstream numbers(text.str());
  py::array_t<std::uint32_t> key(static_cast<py::ssize_t>(kWords));
  for (std::size_t k = 0; k < kWords; ++k) numbers >> key.mutable_data()[k];
  std::size_t position = 0;
  numbers >> position;
  return py::make_tuple(key, position);
}

void SetState(Simulator& self, const std::pair<std::vector<std::uint32_t>, std::size_t>& state) {
  const InUse in_use(self.is_in_use, "Simulator");
  std::ostringstream text;
  for (const std::uint32_t word : state.first) text << word << ' ';
  text << state.second;
  std::istringstream(text.str()) >> self.generator;
}

// --- Frames and slopes

void RequireNotNegative(const char* name, double value) {
  if (value >= 0.0) return;
  throw py::value_error(std::string(name) + ": expected 0 or more, found " + std::string(py::str(py::float_(value))));
}

/// How a call gives its result: as a view, in an array that Python gave, or in a new one.
template <typename T>
class Result {
 public:
  /// @throws py::type_error, py::value_error  `out` is no array for it, or there is one and no copy is wanted
  Result(const py::object& out, bool copy, Shape shape) : copy_(copy), shape_(std::move(shape)) {
    if (!out.is_none() && !copy) throw py::value_error("out: expected none where copy is False");
    if (!out.is_none()) out_ = Output<T>(out, "out", shape_);
  }

  py::array Of(const std::vector<T>& buffer, const py::object& owner) {
    if (!copy_) return View(owner, buffer.data(), shape_);
    py::array_t<T, py::array::c_style> array = out_ ? *out_ : py::array_t<T, py::array::c_style>(shape_);
    std::memcpy(array.mutable_data(), buffer.data(), buffer.size() * sizeof(T));
    return array;
  }

 private:
  bool copy_;
  Shape shape_;
  std::optional<py::array_t<T, py::array::c_style>> out_;
};

py::array ComputeFrame(const py::object& self_object, const py::object& dx, const py::object& dy, double noise,
                       const py::object& out, bool copy) {
  auto& self = self_object.cast<Simulator&>();
  const Shape shape = {kNumRois};
  const auto x = Input<double>(dx, "dx", shape);
  const auto y = Input<double>(dy, "dy", shape);
  RequireNotNegative("noise", noise);
  Result<std::uint16_t> result(out, copy, FrameShape());
  const InUse in_use(self.is_in_use, "Simulator");
  self.ForgetForeignFrame();
  {
    const WithoutLock unlocked;
    const InPlaceOfTheThreads random(self.generator);
    self.camera.ComputeFrame(In(x), In(y), noise, std::nullopt);
  }
  return result.Of(self.camera.Frame(), self_object);
}

void Measure(Simulator& self, EngineInUse& engine, double limit) {
  if (engine.NeedsInterpreter()) return self.camera.ComputeSlopes(engine.Get(), limit);
  const WithoutLock unlocked;
  self.camera.ComputeSlopes(engine.Get(), limit);
}

py::array ComputeSlopes(const py::object& self_object, const py::object& engine, double limit, const py::object& frame,
                        const py::object& out, bool copy) {
  auto& self = self_object.cast<Simulator&>();
  if (!std::isnan(limit)) RequireNotNegative("limit", limit);
  if (!self.flaw.empty()) throw py::value_error(self.flaw);
  Result<double> result(out, copy, {kNumSlopes});
  const InUse in_use(self.is_in_use, "Simulator");
  EngineInUse measuring(engine, self_object, self.camera.Frame().data());
  if (!frame.is_none()) {
    self.camera.Load(In(Input<std::uint16_t>(frame, "frame", FrameShape())));
    self.holds_foreign_frame = true;
  }
  Measure(self, measuring, limit);
  return result.Of(self.camera.Slopes(), self_object);
}

// --- Pictures

py::bytes Picture(Simulator& self) {
  const InUse in_use(self.is_in_use, "Simulator");
  const workbench::Frame frame = {workbench::kFrameWidth, workbench::kFrameHeight, self.camera.Frame(),
                                  self.holds_foreign_frame};
  const workbench::Overlay overlay = workbench::OverlayOf(self.camera);
  return py::bytes(
      workbench::DrawFrame(frame, workbench::StretchOfDrawn(frame), overlay,
                           "Frame, row 0 at the bottom; measured displacements, " + workbench::ArrowLegend(overlay)));
}

// --- What a call costs without Python, for the benchmarks

/// A copy into `out`, if there is one, included.
template <typename T, typename Action>
double SecondsOf(const Action& action, const std::vector<T>& result, const py::object& out, const Shape& shape) {
  T* const copy = out.is_none() ? nullptr : Output<T>(out, "out", shape).mutable_data();
  const auto start = std::chrono::steady_clock::now();
  action();
  if (copy != nullptr) std::memcpy(copy, result.data(), result.size() * sizeof(T));
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double SecondsOfFrame(Simulator& self, const py::object& dx, const py::object& dy, double noise,
                      const py::object& out) {
  const auto x = Input<double>(dx, "dx", {kNumRois});
  const auto y = Input<double>(dy, "dy", {kNumRois});
  return SecondsOf([&] { self.camera.ComputeFrame(In(x), In(y), noise); }, self.camera.Frame(), out, FrameShape());
}

double SecondsOfSlopes(Simulator& self, const py::object& engine, double limit, const py::object& out) {
  EngineInUse measuring(engine);
  const auto measure = [&] { self.camera.ComputeSlopes(measuring.Get(), limit); };
  return SecondsOf(measure, self.camera.Slopes(), out, {kNumSlopes});
}

/// A property: a view of a buffer.
template <typename T>
void AddView(py::class_<Simulator>& simulator, const char* name,
             const std::vector<T>& (shssim::ShsSimulator::*buffer)() const, const Shape& shape) {
  simulator.def_property_readonly(name, [buffer, shape](const py::object& self) {
    return View(self, (self.cast<Simulator&>().camera.*buffer)().data(), shape);
  });
}

struct RoiRow {
  std::uint16_t x_low;
  std::uint16_t x_up;
  std::uint16_t y_low;
  std::uint16_t y_up;
  double x_ref;
  double y_ref;
};

py::array_t<RoiRow> Rois(const Simulator& self) {
  py::array_t<RoiRow> rows(static_cast<py::ssize_t>(self.camera.Rois().size()));
  RoiRow* row = rows.mutable_data();
  for (const image_processing::Roi& roi : self.camera.Rois()) {
    *row++ = {roi.x_low, roi.x_up, roi.y_low, roi.y_up, roi.x_ref, roi.y_ref};
  }
  MakeReadOnly(rows);
  return rows;
}

py::array_t<bool> RoisUsed(const Simulator& self) {
  const std::vector<std::uint8_t>& flags = self.camera.RoisUsed();
  py::array_t<bool> used(static_cast<py::ssize_t>(flags.size()));
  std::ranges::transform(flags, used.mutable_data(), [](std::uint8_t flag) { return flag != 0; });
  MakeReadOnly(used);
  return used;
}

}  // namespace

struct Simulator::Loaded {
  /// From a folder, or as the library finds it.
  static Loaded From(const std::optional<std::string>& folder) {
    const CalibrationEnds ends;
    if (folder) {
      WithCalibration(*folder, [&] { workbench::UseCalibration(*folder); });
    } else {
      workbench::UseCalibration(FoundFiles());
    }
    return WithValues([] {  // the files are there, and open
      const WithoutLock unlocked;
      const FilesInUse in_use;
      return Loaded{workbench::MakeSimulator<workbench::Camera>(), workbench::CalibrationFiles().front().Name()};
    });
  }

  workbench::Camera camera;
  std::string m2s_file;
};

Simulator::Simulator(const std::optional<std::string>& folder, std::optional<std::uint32_t> seed)
    : Simulator(Loaded::From(folder), folder.value_or("."), seed) {}

Simulator::Simulator(Loaded&& loaded, const std::string& folder, std::optional<std::uint32_t> seed)
    : camera(std::move(loaded.camera)),
      m2s_file(std::move(loaded.m2s_file)),
      flaw(FlawOf(camera, folder)),
      generator(seed ? *seed : std::random_device()()) {}

void Simulator::ForgetForeignFrame() {
  if (holds_foreign_frame) camera.Load(std::vector<std::uint16_t>(camera.Frame().size()));
  holds_foreign_frame = false;
}

void BindSimulator(py::module_& module) {
  PYBIND11_NUMPY_DTYPE(RoiRow, x_low, x_up, y_low, y_up, x_ref, y_ref);
  py::class_<Simulator> simulator(module, "Simulator");
  RefusePickling(simulator);
  simulator
      .def(py::init<const std::optional<std::string>&, std::optional<std::uint32_t>>(), py::arg("folder"),
           py::arg("seed"))
      .def("compute_frame", &ComputeFrame)
      .def("compute_slopes", &ComputeSlopes)
      .def("picture", &Picture)
      .def("seconds_of_frame", &SecondsOfFrame)
      .def("seconds_of_slopes", &SecondsOfSlopes)
      .def("seed",
           [](Simulator& self, std::uint32_t seed) {
             const InUse in_use(self.is_in_use, "Simulator");
             self.generator.seed(seed);
           })
      .def_property("random_state", &StateOf, &SetState)
      .def_property_readonly("rois", &Rois)
      .def_property_readonly("rois_used", &RoisUsed);
  using shssim::ShsSimulator;
  AddView(simulator, "frame", &ShsSimulator::Frame, FrameShape());
  AddView(simulator, "frame_values", &ShsSimulator::FrameValues, FrameShape());
  AddView(simulator, "slopes", &ShsSimulator::Slopes, {kNumSlopes});
  AddView(simulator, "flux", &ShsSimulator::Flux, {kNumRois});
  AddView(simulator, "flux_used", &ShsSimulator::FluxUsed, {kNumRoisUsed});
  AddView(simulator, "x_slopes", &ShsSimulator::XSlopes, {kNumRois});
  AddView(simulator, "x_slopes_used", &ShsSimulator::XSlopesUsed, {kNumRoisUsed});
  AddView(simulator, "y_slopes", &ShsSimulator::YSlopes, {kNumRois});
  AddView(simulator, "y_slopes_used", &ShsSimulator::YSlopesUsed, {kNumRoisUsed});
  const auto matrix = [](const std::vector<double>& (basesim::BaseSimulator::*buffer)() const, const Shape& shape) {
    return [buffer, shape](const py::object& self) {
      return View(self, (self.cast<Simulator&>().camera.*buffer)().data(), shape);
    };
  };
  simulator.def_property_readonly("m2s", matrix(&basesim::BaseSimulator::M2s, {kNumSlopes, kNumModes}))
      .def_property_readonly("cm", matrix(&basesim::BaseSimulator::Cm, {kNumModes, kNumSlopes}));
}

}  // namespace quen::python
