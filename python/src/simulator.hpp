#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "workbench/sensor/camera.hpp"

namespace quen::python {

namespace py = pybind11;

/// A simulator in Python's hands, with a generator of its own.
class Simulator {
 public:
  /// @param folder  with the calibration; none: found as the library finds it
  /// @param seed    of the generator; none: the system's entropy
  Simulator(const std::optional<std::string>& folder, std::optional<std::uint32_t> seed);

  /// To be called before a frame is drawn.
  void ForgetForeignFrame();

  workbench::Camera camera;
  std::string m2s_file;  ///< where the modes-to-slopes matrix is
  std::string flaw;      ///< why slopes cannot be measured: too few usage flags; empty if they can
  std::mt19937 generator;
  bool holds_foreign_frame = false;  ///< with light outside the regions, which no frame of its own draws anew
  std::atomic_flag is_in_use = {};

 private:
  struct Loaded;
  Simulator(Loaded&& loaded, const std::string& folder, std::optional<std::uint32_t> seed);
};

void BindSimulator(py::module_& module);

}  // namespace quen::python
