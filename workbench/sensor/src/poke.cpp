#include "workbench/sensor/poke.hpp"

#include <fmt/format.h>

#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "workbench/fits/input_file.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

/// @throws std::runtime_error  a mode moves no spot, or the slopes are not finite
void RequireMeasured(const Matrix& m2s, const std::string& engine) {
  if (!m2s.allFinite()) {
    throw std::runtime_error(fmt::format(
        "the modes cannot be measured: {} gives slopes that are not finite; try less noise, or another engine",
        engine));
  }
  for (Eigen::Index mode = 0; mode < m2s.cols(); ++mode) {
    if (!m2s.col(mode).isZero(0.0)) continue;
    throw std::runtime_error(fmt::format(
        "the modes cannot be measured: {} finds that no spot moves with mode {} (counted from 0); look at a "
        "frame for light, and at the detector's maps for pixels that count",
        engine, mode));
  }
}

Matrix PushAndPull(Camera& camera, const PokeOptions& options, Engine& engine,
                   const std::function<void()>& after_frame) {
  const auto m2s = M2sOf(camera);
  const std::vector<std::size_t> used = UsedIndices(camera.RoisUsed());
  camera.Use(options.exposure);

  Displacements displacements;
  const auto measure = [&](const Eigen::VectorXd& truth) -> Eigen::VectorXd {
    SetUsedDisplacements(truth, used, displacements);
    camera.Draw(displacements);
    camera.ComputeSlopes(engine, std::numeric_limits<double>::infinity(), std::nullopt);
    after_frame();
    return SlopesOf(camera);
  };
  Matrix measured(m2s.rows(), m2s.cols());
  for (Eigen::Index mode = 0; mode < measured.cols(); ++mode) {
    const double amplitude = options.amplitude / m2s.col(mode).cwiseAbs().maxCoeff();
    const Eigen::VectorXd pushed = measure(amplitude * m2s.col(mode));  // before pulled, for the noise
    const Eigen::VectorXd pulled = measure(-amplitude * m2s.col(mode));
    measured.col(mode) = (pushed - pulled) / (2.0 * amplitude);
  }
  return measured;
}

}  // namespace

Camera CameraOn(const Calibration& calibration) {
  std::vector<InputFile> files;
  const std::vector<std::string> contents = CalibrationBytes(calibration);
  for (std::size_t k = 0; k < contents.size(); ++k) {
    files.push_back(InputFile::InMemory(kCalibrationFiles.at(k), contents[k]));
  }
  UseCalibration(std::move(files));
  return MakeSimulator<Camera>();
}

Calibration Measured(Camera& camera, const Calibration& calibration, const PokeOptions& options,
                     const std::function<void()>& after_frame) {
  return Measured(camera, calibration, options, *MakeEngine(options.engine, InputsFor(options.exposure.detector)),
                  after_frame);
}

Calibration Measured(Camera& camera, const Calibration& calibration, const PokeOptions& options, Engine& engine,
                     const std::function<void()>& after_frame) {
  const Matrix m2s = PushAndPull(camera, options, engine, after_frame);
  RequireMeasured(m2s, options.engine);
  return WithMatrix(calibration, m2s,
                    fmt::format("measured: {}, {:g} pixels, {}, seed {}", options.engine, options.amplitude,
                                InWords(options.exposure), options.exposure.seed),
                    options.exposure);
}

}  // namespace quen::workbench
