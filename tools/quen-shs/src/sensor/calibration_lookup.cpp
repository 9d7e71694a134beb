#include "tools/quen-shs/src/sensor/calibration_lookup.hpp"

#include <filesystem>
#include <stdexcept>

#include "pim/helper.hpp"
#include "tools/quen-shs/src/sensor/calibration.hpp"
#include "tools/quen-shs/src/sensor/displacements.hpp"

namespace {

std::filesystem::path& Folder() {
  static std::filesystem::path folder;
  return folder;
}

std::string Missing(const std::string& folder, const std::string& path) {
  return "no calibration in " + folder + ": " + path + " is missing; 'quen-shs calibrate " + folder +
         "' makes a synthetic one";
}

}  // namespace

// The library asks its host's lookup first; this one knows the folder that the user named.
std::string pim::Helper::FindFile(const std::string& name) { return (Folder() / name).string(); }

void quen_shs::UseCalibration(const std::string& folder) {
  for (const char* const name : kCalibrationFiles) {
    const std::filesystem::path path = std::filesystem::path(folder) / name;
    if (!std::filesystem::exists(path)) throw std::runtime_error(Missing(folder, path.string()));
  }
  Folder() = folder;
}

void quen_shs::RequireFlags(const quen::shssim::ShsSimulator& simulator, const std::string& folder) {
  const std::size_t flags = simulator.RoisUsed().size();
  const std::size_t used = UsedIndices(simulator.RoisUsed()).size();
  if (used == quen::shssim::kNumRoisUsed || flags >= quen::basesim::kNumRois) return;
  throw std::runtime_error("the calibration in " + folder + " has " + std::to_string(flags) + " usage flags, " +
                           std::to_string(used) + " of them set; expected " + std::to_string(quen::basesim::kNumRois) +
                           " and " + std::to_string(quen::shssim::kNumRoisUsed) + "; 'quen-shs check " + folder +
                           "' tells more");
}
