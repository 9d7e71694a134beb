#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/quen-shs/cli/argument.hpp"

/// @file
/// Arguments that several verbs take, in the same words.

namespace quen::tool {

Argument CalibrationFolder(std::string& folder);
Argument Noise(double& noise);
Argument Seed(std::uint32_t& seed);
Argument JsonFlag(bool& json);

/// A centroiding engine with its options.
Argument Engine(std::string& engine);
/// Any number of engines; all of them where none is given.
Argument Engines(std::vector<std::string>& engines);

}  // namespace quen::tool
