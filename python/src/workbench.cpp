#include "python/src/workbench.hpp"

#include <pybind11/stl.h>

#include <algorithm>
#include <array>
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
#include "workbench/check/findings_table.hpp"
#include "workbench/engines/scoring.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/loop/control_loop.hpp"
#include "workbench/pictures/check_picture.hpp"
#include "workbench/pictures/errors_picture.hpp"
#include "workbench/pictures/loop_picture.hpp"
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

py::list AsList(const std::vector<workbench::NamedScore>& scores) {
  py::list list;
  for (const auto& [name, score] : scores) {
    list.append(py::make_tuple(AsTuple(score.x), AsTuple(score.y), score.worst, score.flux_bias, score.flux_rms,
                               score.failed, score.microseconds));
  }
  return list;
}

centroiders::Score AsScore(const py::tuple& values) {
  using Four = std::tuple<double, double, double, double>;
  const auto axis = [](const Four& of) {
    const auto& [bias, rms, gain, offset] = of;
    return centroiders::AxisScore{.bias = bias, .rms = rms, .gain = gain, .offset = offset};
  };
  const auto [x, y, worst, flux_bias, flux_rms, failed, microseconds] =
      values.cast<std::tuple<Four, Four, double, double, double, double, double>>();
  return {.x = axis(x),
          .y = axis(y),
          .worst = worst,
          .flux_bias = flux_bias,
          .flux_rms = flux_rms,
          .failed = failed,
          .microseconds = microseconds};
}

workbench::ScoreConditions ConditionsOf(double range, std::size_t frames, const workbench::Exposure& exposure) {
  return {.options = {.noise = exposure.noise, .range = range, .frames = frames, .seed = exposure.seed},
          .detector = exposure.detector};
}

/// The table that the tool prints.
/// @param scores  as AsList makes them
std::string ScoreTable(const std::vector<std::string>& names, const py::list& scores, double range, std::size_t frames,
                       const workbench::Exposure& exposure) {
  std::vector<workbench::NamedScore> named;
  for (const py::handle& score : scores) {
    named.push_back({names.at(named.size()), AsScore(py::reinterpret_borrow<py::tuple>(score))});
  }
  return workbench::ScoreTable(named, ConditionsOf(range, frames, exposure));
}

/// Engines that are scored on one simulator, for the length of a call.
class Scoring {
 public:
  /// @throws py::value_error  the range is none, or the simulator cannot measure
  Scoring(const py::object& simulator_object, const py::list& engines, double range, std::size_t frames,
          const workbench::Exposure& exposure)
      : simulator_(simulator_object.cast<Simulator&>()),
        in_use_(simulator_.is_in_use, "Simulator"),
        conditions_(ConditionsOf(range, frames, exposure)) {
    conditions_.options.after_frame = std::ref(watch_);
    RequireWithin("range", range, centroiders::ScoreLimits::kRange);
    if (!simulator_.flaw.empty()) throw py::value_error(simulator_.flaw);
    simulator_.ForgetForeignFrame();
    for (const py::handle& engine : engines) {
      measuring_.emplace_back(py::reinterpret_borrow<py::object>(engine), simulator_object,
                              simulator_.camera.Frame().data());
      engines_.emplace_back(measuring_.back().Get());
    }
  }

  auto AtOnePlace() {
    const WithoutLock unlocked;
    const std::vector<std::string> without_names(engines_.size());
    return workbench::ScoreByName(simulator_.camera, without_names, engines_, conditions_);
  }

  auto Along(const std::vector<std::string>& names) {
    const WithoutLock unlocked;
    return workbench::ScoreAlong(simulator_.camera, names, engines_, conditions_);
  }

 private:
  Simulator& simulator_;
  InUse in_use_;
  JobWatch watch_;
  workbench::ScoreConditions conditions_;
  std::deque<EngineInUse> measuring_;
  workbench::Engines engines_;
};

py::list Score(const py::object& simulator, const py::list& engines, double range, std::size_t frames,
               const workbench::Exposure& exposure) {
  return AsList(Scoring(simulator, engines, range, frames, exposure).AtOnePlace());
}

/// Along the noise or, with a detector, along the light: places, least errors there, scores there.
py::tuple ScoreAlong(const py::object& simulator, const std::vector<std::string>& names, const py::list& engines,
                     double range, std::size_t frames, const workbench::Exposure& exposure) {
  const workbench::ErrorCurves curves = Scoring(simulator, engines, range, frames, exposure).Along(names);
  py::list scores;
  for (const std::vector<workbench::NamedScore>& at_a_place : curves.scores) scores.append(AsList(at_a_place));
  return py::make_tuple(curves.places, curves.least_rms, scores);
}

double ErrorBound(const workbench::Exposure& exposure) {
  return exposure.detector ? centroiders::ErrorBound(exposure.detector->config)
                           : centroiders::ErrorBound(exposure.noise);
}

// --- Loops

constexpr auto kModes = static_cast<py::ssize_t>(workbench::kNumModes);

/// Modes over time.
py::array_t<double, py::array::c_style> ModeRows(const py::object& rows, const char* name) {
  return Input<double>(rows, name, {kAnyLength, kModes});
}

py::array_t<double> ArrayOf(const workbench::Series& series) {
  py::array_t<double> array(Shape{series.rows(), series.cols()});
  std::copy_n(series.data(), series.size(), array.mutable_data());
  return array;
}

py::array_t<double> Turbulence(const Simulator& simulator, int frames, double d_over_r0, std::uint32_t seed) {
  RequireWithin("d_over_r0", d_over_r0, workbench::LoopLimits::kDOverR0);
  return ArrayOf(WithFiles([&] {
    const WithoutLock unlocked;
    const FilesInUse in_use;
    const Eigen::VectorXd variances = workbench::BasisOfCalibration(workbench::InputFile(simulator.m2s_file)).variances;
    return workbench::TurbulentSeries(frames, variances, d_over_r0, seed);
  }));
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

/// @param frames  how many of the disturbance's; none: all
py::tuple RunLoop(const py::object& simulator_object, const py::object& disturbance, std::optional<py::ssize_t> frames,
                  const py::object& engine, double gain, double leak, int delay, const workbench::Exposure& exposure) {
  auto& simulator = simulator_object.cast<Simulator&>();
  const auto modes = ModeRows(disturbance, "disturbance");
  if (modes.shape(0) == 0) throw py::value_error("disturbance: expected a frame or more, found none");
  if (frames.value_or(0) > modes.shape(0)) {
    const std::string found = std::to_string(modes.shape(0));
    throw py::value_error("disturbance: expected " + std::to_string(*frames) + " frames at least, found " + found +
                          "; give frames=" + found);
  }
  RequireWithin("gain", gain, workbench::LoopLimits::kGain);
  RequireWithin("leak", leak, workbench::LoopLimits::kLeak);
  const workbench::Series series = Eigen::Map<const workbench::Series>(modes.data(), frames.value_or(modes.shape(0)),
                                                                       static_cast<Eigen::Index>(workbench::kNumModes));
  if (!series.allFinite()) throw py::value_error("disturbance: expected finite numbers, found others");
  WithValues([&] { workbench::RequireModerate(series, "disturbance"); });
  if (!simulator.flaw.empty()) throw py::value_error(simulator.flaw);
  const workbench::LoopOptions options = {.gain = gain, .leak = leak, .delay = delay, .exposure = exposure};
  const InUse in_use(simulator.is_in_use, "Simulator");
  EngineInUse measuring(engine, simulator_object, simulator.camera.Frame().data());
  simulator.holds_foreign_frame = exposure.detector != nullptr;
  JobWatch watch;
  workbench::LoopRun run;
  {
    std::mt19937 generator;  // the loop seeds it; the simulator's own stays as it is
    const WithoutLock unlocked;
    const InPlaceOfTheThreads random(generator);
    run = workbench::RunLoop(simulator.camera, series, options, measuring.Get(), std::ref(watch));
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
  const FilesInUse in_use;
  const CalibrationEnds ends;
  return workbench::CameraOn(calibration);
}

workbench::Calibration Computed(const workbench::Geometry& geometry, const std::string& basis) {
  const WithoutLock unlocked;
  return workbench::MakeCalibration(geometry, workbench::BasisByWord(basis));
}

/// @throws Python's ValueError  the engine does not find the modes
workbench::Calibration Measured(const workbench::Calibration& calibration, workbench::PokeOptions options,
                                const py::object& measuring) {
  EngineInUse engine(measuring);
  std::mt19937 generator;
  JobWatch watch;
  options.engine = py::str(py::type::of(measuring).attr("__name__"));
  return WithValues([&] {
    const WithoutLock unlocked;
    workbench::Camera camera = LoadedFrom(calibration);
    const InPlaceOfTheThreads random(generator);
    return workbench::Measured(camera, calibration, options, engine.Get(), std::ref(watch));
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
  workbench::Calibration calibration = Computed(geometry, basis);
  if (!measuring.is_none()) calibration = Measured(calibration, poke, measuring);
  WithFiles([&] {
    const WithoutLock unlocked;
    const FilesInUse in_use;
    files.GiveAll(workbench::CalibrationBytes(calibration));
    files.Commit();
  });
  return files.Names();
}

/// What is found, and the examination, for its picture.
py::tuple Check(const std::string& folder) {
  workbench::Examination examination = WithCalibration(folder, [&] {
    const WithoutLock unlocked;
    const FilesInUse in_use;
    const CalibrationEnds ends;
    return workbench::CheckCalibration(folder);
  });
  py::list list;
  for (const workbench::Finding& finding : examination.findings) {
    std::vector<std::string> mistakes;
    for (const workbench::Correction& correction : finding.corrections) mistakes.push_back(correction.mistake);
    list.append(py::make_tuple(std::string(workbench::Word(finding.verdict)), finding.key, finding.subject,
                               finding.text, finding.advice, py::tuple(py::cast(mistakes)),
                               py::tuple(py::cast(finding.numbers))));
  }
  return py::make_tuple(list, std::move(examination));
}

/// The table that the tool prints.
/// @param rows  of each finding its verdict, subject, text and advice
std::string FindingsTable(const std::vector<std::array<std::string, 4>>& rows, const std::string& folder) {
  workbench::Findings findings;
  for (const auto& [word, subject, text, advice] : rows) {
    workbench::Finding& finding = findings.emplace_back();
    for (const workbench::Verdict verdict : {workbench::Verdict::kDoubtful, workbench::Verdict::kWrong}) {
      if (word == workbench::Word(verdict)) finding.verdict = verdict;
    }
    finding.subject = subject;
    finding.text = text;
    finding.advice = advice;
  }
  return workbench::FindingsTable(findings, folder);
}

// --- Pictures

py::bytes FindingsPicture(const workbench::Examination& examination, const std::string& title) {
  if (!examination.content) throw py::value_error("no picture: the library does not load the calibration");
  return py::bytes(workbench::DrawFindings(*examination.content, examination.findings, title));
}

py::bytes LoopPicture(const py::object& disturbance, const py::object& residual) {
  const auto disturbances = ModeRows(disturbance, "disturbance");
  const auto residuals = Input<double>(residual, "residual", {disturbances.shape(0), kModes});
  if (disturbances.shape(0) == 0) throw py::value_error("disturbance: expected a frame or more, found none");
  std::vector<workbench::FrameRecord> records;
  for (py::ssize_t frame = 0; frame < disturbances.shape(0); ++frame) {
    const auto modes = [frame](const auto& array) {
      return Eigen::Map<const Eigen::VectorXd>(array.data(frame), kModes);
    };
    records.push_back({.disturbance = modes(disturbances), .correction = {}, .residual = modes(residuals)});
  }
  return py::bytes(workbench::DrawTelemetry(records));
}

/// @param errors  at each place, of each engine, along the columns and along the rows
py::bytes ErrorPicture(bool along_light, double range, const std::vector<double>& places,
                       const std::vector<double>& least_rms, const std::vector<std::string>& names,
                       const std::vector<std::vector<std::pair<double, double>>>& errors) {
  const auto is_whole = [&](const auto& at_a_place) { return at_a_place.size() == names.size(); };
  if (names.empty() || places.empty() || least_rms.size() != places.size() || errors.size() != places.size() ||
      !std::ranges::all_of(errors, is_whole)) {
    throw py::value_error("scores: expected one of each engine at each place, found others");
  }
  workbench::ErrorCurves curves = {.abscissa = along_light ? workbench::Abscissa::kLight : workbench::Abscissa::kNoise,
                                   .range = range,
                                   .places = places,
                                   .least_rms = least_rms,
                                   .scores = {}};
  for (const auto& at_a_place : errors) {
    std::vector<workbench::NamedScore>& scores = curves.scores.emplace_back();
    for (std::size_t k = 0; k < names.size(); ++k) {
      const auto [x, y] = at_a_place[k];
      scores.push_back({names[k], {.x = {.rms = x}, .y = {.rms = y}}});
    }
  }
  return py::bytes(workbench::DrawErrors(curves));
}

void WriteFile(const std::string& name, const std::string& bytes) {
  WithFiles([&] {
    const WithoutLock unlocked;
    workbench::StagedFiles files({name});
    files.Give(name, bytes);
    files.Commit();
  });
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
  py::class_<workbench::Exposure> exposure(module, "Exposure");
  exposure.def(py::init(&MadeExposure));
  RefusePickling(exposure);
  py::class_<workbench::Examination> examination(module, "Examination");
  examination.def("picture", &FindingsPicture);
  RefusePickling(examination);
  module.attr("limits") = WholeLimits();
  module.def("score", &Score);
  module.def("score_along", &ScoreAlong);
  module.def("score_table", &ScoreTable);
  module.def("error_bound", &ErrorBound);
  module.def("turbulence", &Turbulence);
  module.def("run_loop", &RunLoop);
  module.def("calibrate", &Calibrate);
  module.def("check", &Check);
  module.def("findings_table", &FindingsTable);
  module.def("loop_picture", &LoopPicture);
  module.def("error_picture", &ErrorPicture);
  module.def("write_file", &WriteFile);
}

}  // namespace quen::python
