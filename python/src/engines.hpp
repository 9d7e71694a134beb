#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "python/src/guards.hpp"
#include "quen_image_processing/centroiding/centroiding.hpp"

/// @file
/// Engines as Python gives them: ready-made ones, and objects with a method compute(frame, roi) of a host's own.

namespace quen::python {

namespace py = pybind11;

using Engine = image_processing::Centroiding<std::uint16_t>;

/// A ready-made engine, in Python's hands.
struct ReadyEngine {
  explicit ReadyEngine(std::unique_ptr<Engine> made, bool knows_maps = false)
      : engine(std::move(made)), has_maps(knows_maps) {}

  std::unique_ptr<Engine> engine;
  bool has_maps;  ///< which frames must be as large as
  std::atomic_flag is_in_use = {};
};

/// The engine that an object stands for, for the length of a call.
class EngineInUse {
 public:
  /// @param simulator  whose frames are measured, as Python knows it; none where Python knows none
  /// @param pixels     of its frame
  /// @throws py::type_error      no engine
  /// @throws std::runtime_error  it is in use already
  explicit EngineInUse(const py::object& engine, const py::object& simulator = py::none(),
                       const std::uint16_t* pixels = nullptr);
  ~EngineInUse();
  EngineInUse(const EngineInUse&) = delete;
  EngineInUse& operator=(const EngineInUse&) = delete;
  EngineInUse(EngineInUse&&) = delete;
  EngineInUse& operator=(EngineInUse&&) = delete;

  [[nodiscard]] Engine& Get() { return *engine_; }
  [[nodiscard]] bool NeedsInterpreter() const { return own_ != nullptr; }

 private:
  class PythonEngine;
  std::unique_ptr<PythonEngine> own_;
  py::object ready_ = py::none();  ///< which a property may have made for this call alone
  std::optional<InUse> in_use_;
  Engine* engine_ = nullptr;
};

void BindEngines(py::module_& module);

}  // namespace quen::python
