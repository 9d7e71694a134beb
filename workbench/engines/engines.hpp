#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "centroiders/pixel_reading.hpp"
#include "quen_image_processing/centroiding/centroiding.hpp"
#include "workbench/detector/description.hpp"
#include "workbench/engines/pixel_maps.hpp"
#include "workbench/engines/spot_template.hpp"

/// @file
/// Centroiding engines by name, as arguments give them: NAME or NAME:OPTION=VALUE,OPTION=VALUE.

namespace quen::workbench {

using Engine = quen::image_processing::Centroiding<std::uint16_t>;

inline constexpr const char* kDefaultEngine = "centre-of-gravity";

/// Names of all engines.
std::vector<std::string> EngineNames();

/// Their options and what they are, for the help: a line with the name of each engine, and one per option of it.
std::string EngineHelp();

/// What an engine is told beside its text.
struct EngineInputs {
  quen::centroiders::PixelSign sign = quen::centroiders::PixelSign::kSigned;  ///< where the text says nothing of it
  PixelMaps maps = {};                    ///< of the camera, as far as they are known
  std::optional<SpotTemplate> spot = {};  ///< the template, for engines that look for one; others do not look at it
};

/// What engines are told of frames of a detector or, where there is none, of the simulator.
EngineInputs InputsFor(const std::shared_ptr<const DetectorDescription>& detector);

/// @throws std::invalid_argument  no such engine, no such option, a value that is not what the option takes, or one out
///                                of its range
std::unique_ptr<Engine> MakeEngine(const std::string& text, const EngineInputs& inputs = {});

/// Whether an engine, as its text gives it, looks for a template.
/// @throws std::invalid_argument  no such engine
bool TakesTemplate(const std::string& text);

/// Whether an engine, as its text gives it, knows of counts that are no light: it fits them, subtracts what its pixels
/// have in common, or an option tells it.
/// @throws std::invalid_argument  as MakeEngine
bool TakesPedestalAway(const std::string& text);

/// Whether an engine, as its text gives it, leaves saturated pixels out.
/// @throws std::invalid_argument  as MakeEngine
bool LeavesSaturatedOut(const std::string& text);

}  // namespace quen::workbench
