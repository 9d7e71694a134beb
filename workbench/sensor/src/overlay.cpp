#include "workbench/sensor/overlay.hpp"

#include <cmath>

namespace quen::workbench {

Overlay OverlayOf(const quen::shssim::ShsSimulator& simulator) {
  return {simulator.Rois(), simulator.RoisUsed(), Displacements{simulator.XSlopes(), simulator.YSlopes()}};
}

bool Overlay::HasArrow(std::size_t i) const {
  return displacements && std::isfinite(std::hypot(displacements->x[i], displacements->y[i])) &&
         std::isfinite(rois[i].x_ref) && std::isfinite(rois[i].y_ref);
}

}  // namespace quen::workbench
