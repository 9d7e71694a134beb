#pragma once

#include <pybind11/pybind11.h>

#include "detector/detector.hpp"

namespace quen::python {

namespace py = pybind11;

/// A detector in Python's hands, and what it was made from.
struct ReadyDetector {
  explicit ReadyDetector(const detector::DetectorConfig& wanted) : config(wanted), detector(wanted) {}

  detector::DetectorConfig config;
  detector::Detector detector;
};

void BindDetector(py::module_& module);

}  // namespace quen::python
