#include <pybind11/pybind11.h>

#include "python/src/campaign.hpp"
#include "python/src/detector.hpp"
#include "python/src/engines.hpp"
#include "python/src/guards.hpp"
#include "python/src/simulator.hpp"
#include "python/src/streams.hpp"
#include "python/src/workbench.hpp"

/// The compiled half of the package quen_shs: what its Python half calls, which checks, names and documents.
PYBIND11_MODULE(_core, module) {
  quen::python::WatchTheInterpreter();
  quen::python::BindEngines(module);
  quen::python::BindDetector(module);
  quen::python::BindSimulator(module);
  quen::python::BindStreams(module);
  quen::python::BindWorkbench(module);
  quen::python::BindCampaign(module);
  module.attr("version") = QUEN_VERSION;
}
