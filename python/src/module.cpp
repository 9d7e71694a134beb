#include <pybind11/pybind11.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "python/src/campaign.hpp"
#include "python/src/detector.hpp"
#include "python/src/engines.hpp"
#include "python/src/guards.hpp"
#include "python/src/simulator.hpp"
#include "python/src/streams.hpp"
#include "python/src/workbench.hpp"

namespace {

/// What the libraries refuse names a class of theirs first, which Python may call otherwise: only the rest is told.
std::string WithoutClass(const std::string& text) {
  const auto is_letter = [](unsigned char letter) { return std::isalpha(letter) != 0; };
  const auto end = std::find_if_not(text.begin(), text.end(), is_letter);
  const std::string rest(end, text.end());
  return end != text.begin() && std::isupper(static_cast<unsigned char>(text.front())) != 0 && rest.starts_with(": ")
             ? rest.substr(2)
             : text;
}

void TranslateRefusals(std::exception_ptr refusal) {
  try {
    if (refusal) std::rethrow_exception(std::move(refusal));
  } catch (const std::invalid_argument& error) {
    PyErr_SetString(PyExc_ValueError, WithoutClass(error.what()).c_str());
  }
}

}  // namespace

/// The compiled half of the package quen_shs: what its Python half calls, which checks, names and documents.
PYBIND11_MODULE(_core, module) {
  pybind11::register_local_exception_translator(&TranslateRefusals);
  quen::python::WatchTheInterpreter();
  quen::python::BindEngines(module);
  quen::python::BindDetector(module);
  quen::python::BindSimulator(module);
  quen::python::BindStreams(module);
  quen::python::BindWorkbench(module);
  quen::python::BindCampaign(module);
  module.attr("version") = QUEN_VERSION;
}
