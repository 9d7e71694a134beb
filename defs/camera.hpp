#pragma once

#include <cstdint>
#include <map>
#include <string>

/// @file
/// Camera identifiers: the product's shared vocabulary for its eight cameras, and the table that turns a camera's text
/// name into its identifier. The simulator itself looks no camera up.
///
/// The table is built while the including binary is loaded and never changes, so any number of threads may read it.

namespace quen::defs {

/// The cameras: four imaging ones, then four wavefront sensors.
enum class Camera : std::int32_t {
  IMG_GP1 = 0,
  IMG_GP2 = 1,
  IMG_GP3 = 2,
  IMG_PDS = 3,
  WFS_GP1 = 4,
  WFS_GP2 = 5,
  WFS_GP3 = 6,
  WFS_PDS = 7,
};

/// Camera by text name. Names are matched exactly, case and blanks included. Each including file owns a copy.
// NOLINTNEXTLINE(cert-err58-cpp): running out of memory while the library is loaded ends the process, as it must.
const std::map<std::string, Camera> kCameraByName = {
    {"IMG_GP1", Camera::IMG_GP1}, {"IMG_GP2", Camera::IMG_GP2}, {"IMG_GP3", Camera::IMG_GP3},
    {"IMG_PDS", Camera::IMG_PDS}, {"WFS_GP1", Camera::WFS_GP1}, {"WFS_GP2", Camera::WFS_GP2},
    {"WFS_GP3", Camera::WFS_GP3}, {"WFS_PDS", Camera::WFS_PDS},
};

/// Names of the product's modules, shared like the cameras.
// NOLINTBEGIN(cert-err58-cpp): too short to allocate.
const std::string kModuleApp = "app";
const std::string kModulePimSm = "pim.sm";  ///< likewise
const std::string kModulePim = "pim";       ///< likewise
// NOLINTEND(cert-err58-cpp)

}  // namespace quen::defs
