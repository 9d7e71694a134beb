#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/quen-shs/cli/argument.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/pedestal.hpp"

namespace quen::workbench {
class StagedFiles;
}

/// @file
/// Arguments that several verbs take, in the same words.

namespace quen::tool {

Argument CalibrationFolder(std::string& folder);
Argument Noise(double& noise);
Argument Seed(std::uint32_t& seed);
Argument JsonFlag(bool& json);

/// An image of a file that is not its first.
Argument Extension(const std::string& what, std::string& variable);

/// A centroiding engine with its options.
Argument Engine(std::string& engine);
/// Any number of engines; all of them where none is given.
Argument Engines(std::vector<std::string>& engines);

/// A detector as the command line has it: a description, and parameters that stand over its own.
struct DetectorArguments : workbench::DetectorChanges {
  std::string file;  ///< none if empty
  bool engines_know_maps = false;
};

/// The parameters alone.
std::vector<Argument> DetectorParameters(DetectorArguments& detector);

/// The noise of frames: the simulator's own or, by any of the other arguments, a detector's; and the seed of either.
std::vector<Argument> ExposureArguments(double& noise, std::uint32_t& seed, DetectorArguments& detector);

/// Whether engines know the detector's maps.
Argument UseMaps(DetectorArguments& detector);

/// A verb's alternatives, and that there is no noise of the simulator's own beside a detector.
std::vector<std::vector<std::string>> WithExposure(std::vector<std::vector<std::string>> alternatives);

/// What the frames were drawn with, for people and scripts, or for scripts alone.
void AddExposure(Report& report, const workbench::Exposure& exposure);
void AddExposureForScripts(Report& report, const workbench::Exposure& exposure);

/// The counts between the spots, if any frame was looked at; a warning of them where the engine takes them for light.
void AddPedestal(Report& report, const std::optional<workbench::Pedestal>& pedestal, const std::string& engine);

/// The detector that is asked for; none if none is.
/// @throws std::runtime_error  the description or a map cannot be read, is wrong, or is among the files to be written;
///                             there are no maps for engines to know
std::shared_ptr<const workbench::DetectorDescription> DetectorFor(const DetectorArguments& arguments,
                                                                  const workbench::StagedFiles& files);

/// One list after the other.
std::vector<Argument> Joined(std::vector<std::vector<Argument>> lists);

}  // namespace quen::tool
