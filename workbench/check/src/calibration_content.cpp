#include "workbench/check/calibration_content.hpp"

namespace quen::workbench {

CalibrationContent ContentOf(const quen::shssim::ShsSimulator& simulator) {
  return {M2sOf(simulator), CmOf(simulator), simulator.Rois(), simulator.RoisUsed()};
}

}  // namespace quen::workbench
