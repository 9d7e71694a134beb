#include "workbench/sensor/poke.hpp"

#include <limits>
#include <memory>

#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {

Matrix MeasuredModesToSlopes(Camera& camera, const PokeOptions& options, const std::function<void()>& after_frame) {
  const auto m2s = M2sOf(camera);
  const std::vector<std::size_t> used = UsedIndices(camera.RoisUsed());
  const std::unique_ptr<Engine> engine = MakeEngine(options.engine, InputsFor(options.exposure.detector));
  camera.Use(options.exposure);

  Displacements displacements;
  const auto measure = [&](const Eigen::VectorXd& truth) -> Eigen::VectorXd {
    SetUsedDisplacements(truth, used, displacements);
    camera.Draw(displacements);
    camera.ComputeSlopes(*engine, std::numeric_limits<double>::infinity(), std::nullopt);
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

}  // namespace quen::workbench
