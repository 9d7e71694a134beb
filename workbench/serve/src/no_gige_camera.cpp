#include <stdexcept>

#include "workbench/serve/gige_camera.hpp"

// The camera of a build without Aravis: there is none.

namespace quen::workbench {

struct GigeCamera::State {
  GigeCounts counts;
};

GigeCamera::GigeCamera(const std::string& address, const std::string& /*name*/, double /*rate*/) {
  throw std::runtime_error(
      "--gige: expected a quen-shs that was built with Aravis (libaravis-dev), found one without; " + address +
      " gets no camera");
}

GigeCamera::~GigeCamera() = default;

void GigeCamera::Send(gsl::span<const std::uint16_t> /*pixels*/) {}

void GigeCamera::Finish() {}

GigeCounts GigeCamera::Counts() const { return state_->counts; }

}  // namespace quen::workbench
