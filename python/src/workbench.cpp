#include "python/src/workbench.hpp"

#include <pybind11/stl.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "centroiders/score.hpp"
#include "common/checks/checks.hpp"
#include "python/src/arrays.hpp"
#include "python/src/detector.hpp"
#include "python/src/engines.hpp"
#include "python/src/guards.hpp"
#include "python/src/simulator.hpp"
#include "workbench/check/check.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/loop/control_loop.hpp"
#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/poke.hpp"

namespace quen::python {
namespace {

using common::Limits;

/// The same for arguments of functions, which have no class.
void RequireWithin(const char* name, double value, const Limits& limits) { common::RequireWithin(name, value, limits); }

/// As Python gives it: with noise, or with a detector.
workbench::Exposure MadeExposure(double noise, std::uint32_t seed, const ReadyDetector* detector) {
  RequireWithin("noise", noise, centroiders::ScoreLimits::kNoise);
  workbench::Exposure exposure = {.noise = noise, .seed = seed};
  if (detector != nullptr) {
    auto description = std::make_shared<workbench::DetectorDescription>();
    description->config = detector->config;
    exposure.detector = description;
  }
  return exposure;
}

// --- Scores

py::tuple AsTuple(const centroiders::AxisScore& axis) {
  return py::make_tuple(axis.bias, axis.rms, axis.gain, axis.offset);
}

py::list Score(const py::object& simulator_object, const py::list& engines, double range, std::size_t frames,
               const workbench::Exposure& exposure) {
  auto& simulator = simulator_object.cast<Simulator&>();
  RequireWithin("range", range, centroiders::ScoreLimits::kRange);
  if (!simulator.flaw.empty()) throw py::value_error(simulator.flaw);
  const InUse in_use(simulator.is_in_use, "Simulator");
  simulator.ForgetForeignFrame();
  std::deque<EngineInUse> measuring;
  std::vector<std::reference_wrapper<Engine>> references;
  for (const py::handle& engine : engines) {
    measuring.emplace_back(py::reinterpret_borrow<py::object>(engine), simulator_object,
                           simulator.camera.Frame().data());
    references.emplace_back(measuring.back().Get());
  }
  const centroiders::ScoreOptions options = {
      .noise = exposure.noise, .range = range, .frames = frames, .seed = exposure.seed, .after_frame = &StopIfAsked};
  std::vector<centroiders::Score> scores;
  {
    const py::gil_scoped_release unlocked;
    scores = exposure.detector ? ScoreEngines(simulator.camera, references, options, exposure.detector->config)
                               : ScoreEngines(simulator.camera, references, options);
  }
  py::list list;
  for (const centroiders::Score& score : scores) {
    list.append(py::make_tuple(AsTuple(score.x), AsTuple(score.y), score.worst, score.flux_bias, score.flux_rms,
                               score.failed, score.microseconds));
  }
  return list;
}

double ErrorBound(const workbench::Exposure& exposure) {
  return exposure.detector ? centroiders::ErrorBound(exposure.detector->config)
                           : centroiders::ErrorBound(exposure.noise);
}

// --- Loops

py::array_t<double> ArrayOf(const workbench::Series& series) {
  py::array_t<double> array(Shape{series.rows(), series.cols()});
  std::copy_n(series.data(), series.size(), array.mutable_data());
  return array;
}

py::array_t<double> Turbulence(const Simulator& simulator, int frames, double d_over_r0, std::uint32_t seed) {
  RequireWithin("d_over_r0", d_over_r0, workbench::LoopLimits::kDOverR0);
  const Eigen::VectorXd variances =
      WithFiles([&] { return workbench::BasisOfCalibration(workbench::InputFile(simulator.m2s_file)).variances; });
  return ArrayOf(workbench::TurbulentSeries(frames, variances, d_over_r0, seed));
}

/// A row per frame.
py::array_t<double> ArrayOf(const workbench::LoopRun& run, Eigen::VectorXd workbench::FrameRecord::*vector) {
  py::array_t<double> array(Shape{static_cast<py::ssize_t>(run.records.size()), workbench::kNumModes});
  double* row = array.mutable_data();
  for (const workbench::FrameRecord& record : run.records) {
    row = std::copy_n((record.*vector).data(), workbench::kNumModes, row);
  }
  return array;
}

py::tuple RunLoop(const py::object& simulator_object, const py::object& disturbance, const py::object& engine,
                  double gain, double leak, int delay, const workbench::Exposure& exposure) {
  auto& simulator = simulator_object.cast<Simulator&>();
  const auto modes =
      Input<double>(disturbance, "disturbance", Shape{kAnyLength, static_cast<py::ssize_t>(workbench::kNumModes)});
  if (modes.shape(0) == 0) throw py::value_error("disturbance: expected a frame or more, found none");
  RequireWithin("gain", gain, workbench::LoopLimits::kGain);
  RequireWithin("leak", leak, workbench::LoopLimits::kLeak);
  const workbench::Series series = Eigen::Map<const workbench::Series>(modes.data(), modes.shape(0),
                                                                       static_cast<Eigen::Index>(workbench::kNumModes));
  if (!series.allFinite()) throw py::value_error("disturbance: expected finite numbers, found others");
  WithValues([&] { workbench::RequireModerate(series, "disturbance"); });
  if (!simulator.flaw.empty()) throw py::value_error(simulator.flaw);
  const workbench::LoopOptions options = {.gain = gain, .leak = leak, .delay = delay, .exposure = exposure};
  const InUse in_use(simulator.is_in_use, "Simulator");
  EngineInUse measuring(engine, simulator_object, simulator.camera.Frame().data());
  simulator.holds_foreign_frame = exposure.detector != nullptr;
  workbench::LoopRun run;
  {
    std::mt19937 generator;  // the loop seeds it; the simulator's own stays as it is
    const py::gil_scoped_release unlocked;
    const InPlaceOfTheThreads random(generator);
    run = workbench::RunLoop(simulator.camera, series, options, measuring.Get(), &StopIfAsked);
  }
  const workbench::LoopSummary summary = workbench::SummaryOf(run, delay);
  return py::make_tuple(
      ArrayOf(run, &workbench::FrameRecord::disturbance), ArrayOf(run, &workbench::FrameRecord::correction),
      ArrayOf(run, &workbench::FrameRecord::residual), run.lost_spots, run.has_diverged, summary.before, summary.after);
}

// --- Calibrations

/// @throws Python's FileExistsError  a file of a calibration is there
void RequireNoCalibration(const std::string& folder) {
  try {
    workbench::RequireNew(workbench::CalibrationNames(folder), "give force=True to replace the calibration");
  } catch (const std::runtime_error& error) {
    ThrowOsError(error.what(), PyExc_FileExistsError);
  }
}

/// In use only as long as the camera loads it: the engine may have simulators of its own made.
workbench::Camera LoadedFrom(const workbench::Calibration& calibration) {
  const CalibrationEnds ends;
  return workbench::CameraOn(calibration);
}

/// @throws Python's ValueError  the engine does not find the modes
workbench::Calibration Measured(const workbench::Calibration& calibration, workbench::PokeOptions options,
                                const py::object& measuring) {
  EngineInUse engine(measuring);
  std::mt19937 generator;
  const InPlaceOfTheThreads random(generator);
  options.engine = py::str(py::type::of(measuring).attr("__name__"));
  return WithValues([&] {
    workbench::Camera camera = LoadedFrom(calibration);
    return workbench::Measured(camera, calibration, options, engine.Get(), &StopIfAsked);
  });
}

/// @param measuring  an engine; none where the matrix is computed
std::vector<std::string> Calibrate(const std::string& folder, bool force, const py::tuple& geometry_values,
                                   const std::string& basis, const py::object& measuring, double poke_amplitude,
                                   const workbench::Exposure& exposure) {
  using Geometry = workbench::GeometryLimits;
  workbench::Geometry geometry;
  std::tie(geometry.pitch, geometry.size, geometry.offset_x, geometry.offset_y, geometry.obscuration,
           geometry.spider_angle, geometry.spider_width) =
      geometry_values.cast<std::tuple<double, int, double, double, double, std::optional<double>, double>>();
  RequireWithin("pitch", geometry.pitch, Geometry::kPitch);
  RequireWithin("offset_x", geometry.offset_x, Geometry::kOffset);
  RequireWithin("offset_y", geometry.offset_y, Geometry::kOffset);
  RequireWithin("obscuration", geometry.obscuration, Geometry::kObscuration);
  RequireWithin("spider_angle", geometry.spider_angle.value_or(0.0), Geometry::kSpiderAngle);
  RequireWithin("spider_width", geometry.spider_width, Geometry::kSpiderWidth);
  RequireWithin("poke_amplitude", poke_amplitude, workbench::PokeOptions::kAmplitude);
  if (basis != workbench::kZernikeWord && basis != workbench::kKarhunenLoeveWord) {
    throw py::value_error("basis: expected 'zernike' or 'karhunen-loeve', found '" + basis + "'");
  }
  const workbench::PokeOptions poke = {.amplitude = poke_amplitude, .exposure = exposure};
  if (!force) RequireNoCalibration(folder);
  workbench::StagedFiles files = WithFiles([&] { return workbench::StagedFiles(workbench::CalibrationNames(folder)); });
  workbench::Calibration calibration = workbench::MakeCalibration(geometry, workbench::BasisByWord(basis));
  if (!measuring.is_none()) calibration = Measured(calibration, poke, measuring);
  WithFiles([&] {
    files.GiveAll(workbench::CalibrationBytes(calibration));
    files.Commit();
  });
  return files.Names();
}

py::list Check(const std::string& folder) {
  const CalibrationEnds ends;
  const workbench::Examination examination =
      WithCalibration(folder, [&] { return workbench::CheckCalibration(folder); });
  py::list list;
  for (const workbench::Finding& finding : examination.findings) {
    std::vector<std::string> mistakes;
    for (const workbench::Correction& correction : finding.corrections) mistakes.push_back(correction.mistake);
    list.append(py::make_tuple(std::string(workbench::Word(finding.verdict)), finding.key, finding.subject,
                               finding.text, finding.advice, py::tuple(py::cast(mistakes)),
                               py::tuple(py::cast(finding.numbers))));
  }
  return list;
}

/// Of whole numbers, which Python checks before they are made ints of a few bits.
py::dict WholeLimits() {
  py::dict limits;
  const auto add = [&](const char* name, const Limits& within) {
    limits[name] = py::make_tuple(static_cast<long>(within.lowest), static_cast<long>(within.highest));
  };
  add("size", workbench::GeometryLimits::kSize);
  add("score frames", centroiders::ScoreLimits::kFrames);
  add("frames", workbench::LoopLimits::kFrames);
  add("delay", workbench::LoopLimits::kDelay);
  return limits;
}

}  // namespace

void BindWorkbench(py::module_& module) {
  py::class_<workbench::Exposure>(module, "Exposure").def(py::init(&MadeExposure));
  module.attr("limits") = WholeLimits();
  module.def("score", &Score);
  module.def("error_bound", &ErrorBound);
  module.def("turbulence", &Turbulence);
  module.def("run_loop", &RunLoop);
  module.def("calibrate", &Calibrate);
  module.def("check", &Check);
}

}  // namespace quen::python
