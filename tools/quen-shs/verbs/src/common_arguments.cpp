#include "tools/quen-shs/verbs/src/common_arguments.hpp"

#include "workbench/engines/engines.hpp"

namespace quen::tool {

Argument CalibrationFolder(std::string& folder) {
  return Positional("DIR", "Folder with the calibration (DIR/data/...)", folder);
}

Argument Noise(double& noise) {
  return Number("--noise", "Half-width of the pixel noise; a spot's peak is 4096", "units of pixel values", 0.0, 1e6,
                noise);
}

Argument Seed(std::uint32_t& seed) {
  return Number("--seed", "Seed of all that is random; equal seeds give equal results", seed);
}

Argument JsonFlag(bool& json) { return Flag("--json", "Print the result as JSON", json); }

Argument Engine(std::string& engine) {
  return {.name = "--engine",
          .what = "Centroiding engine that measures, with its options",
          .value = "ENGINE",
          .otherwise = engine,
          .words = workbench::EngineNames(),
          .take = [&engine](const std::string& text) {
            workbench::MakeEngine(text);
            engine = text;
          }};
}

Argument Engines(std::vector<std::string>& engines) {
  return {.name = "--engine",
          .what = "Centroiding engine with its options; may be given more than once",
          .value = "ENGINE",
          .otherwise = "all engines",
          .words = workbench::EngineNames(),
          .may_be_repeated = true,
          .take = [&engines](const std::string& text) {
            workbench::MakeEngine(text);
            engines.push_back(text);
          }};
}

}  // namespace quen::tool
