#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <limits>
#include <sstream>
#include <type_traits>

#include "tools/quen-shs/src/commands.hpp"
#include "tools/quen-shs/src/engines.hpp"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

/// Accepts a number of type T from `lowest` to `highest`; a NaN is none.
template <typename T>
CLI::Validator NumberIn(T lowest, T highest) {
  const auto check = [=](const std::string& text) {
    T value{};
    if (CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest) return std::string();
    const char* const kind = std::is_integral_v<T> ? "a whole number" : "a number";
    std::ostringstream message;
    message << "expected " << kind << " from " << lowest << " to " << highest << ", found " << text;
    return message.str();
  };
  return {check, "", ""};
}

/// Accepts an engine with its options.
std::string CheckEngine(const std::string& text) {
  try {
    quen_shs::MakeEngine(text);
    return {};
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

/// What went wrong, in one sentence.
std::string Reason(const std::exception& error) {
  const auto* const file_error = dynamic_cast<const std::filesystem::filesystem_error*>(&error);
  if (file_error == nullptr) return error.what();
  return "cannot make " + file_error->path1().string() + ": " + file_error->code().message();
}

int Run(int argc, char** argv) {
  CLI::App app(
      "Simulates a Shack-Hartmann wavefront sensor: makes a calibration, closes a control loop on it, scores "
      "centroiding engines.");
  app.name("quen-shs");
  app.set_version_flag("--version", "quen-shs " QUEN_VERSION);
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);
  app.footer(
      "Example:\n  quen-shs calibrate sensor\n  quen-shs loop sensor\n  quen-shs score sensor\n\n'quen-shs SUBCOMMAND "
      "--help' tells more.\n"
      "Exit code: 0, 1 for a failed job, 2 for wrong usage.");

  std::string folder;
  bool force = false;
  CLI::App* const calibrate = app.add_subcommand("calibrate", "Write a complete synthetic calibration");
  calibrate->add_option("DIR", folder, "Folder to write to; made if missing")->required();
  calibrate->add_flag("--force", force, "Replace a calibration that is there already");
  calibrate->footer(
      "Writes DIR/data/M2S.fits, DIR/data/CM.fits and DIR/data/shs_rois.fits: 33 x 33 sub-apertures of\n"
      "24 x 24 pixels behind an annular pupil, 607 of them used, and 52 Zernike modes.\n\n"
      "Example: quen-shs calibrate sensor");

  std::string output;
  quen_shs::LoopOptions options;
  CLI::App* const loop = app.add_subcommand("loop", "Close an integrator loop on a calibration");
  loop->add_option("DIR", folder, "Folder with the calibration (DIR/data/...)")->required();
  const auto add_to = [](CLI::App* verb) {
    return [verb](const char* name, auto& value, auto lowest, auto highest, const char* description) {
      using Number = std::remove_reference_t<decltype(value)>;
      verb->add_option(name, value, description)
          ->check(NumberIn<Number>(static_cast<Number>(lowest), static_cast<Number>(highest)))
          ->capture_default_str();
    };
  };
  const auto add = add_to(loop);
  add("--frames", options.frames, 10, 100000, "Number of frames, 10 to 100000");
  add("--gain", options.gain, 0, 2, "Gain of the integrator, 0 to 2");
  add("--delay", options.delay, 1, 9, "Frames from a measurement to the first one it corrects, 1 to 9");
  add("--noise", options.noise, 0, 1e6, "Half-width of the pixel noise, 0 to 1e6; a spot's peak is 4096");
  add("--amplitude", options.strength, 0, 1000, "Strength of the turbulence, D/r0, 0 to 1000");
  add("--seed", options.seed, 0, std::numeric_limits<std::uint32_t>::max(),
      "Seed of turbulence and noise; equal seeds give equal telemetry");
  loop->add_option("--engine", options.engine, "Centroiding engine that measures, with its options")
      ->check(CLI::Validator(CheckEngine, ""))
      ->capture_default_str();
  loop->add_option("--output", output, "Folder for the results; made if missing [DIR/loop]");
  loop->footer(
      "Writes frame.fits and slopes.fits (the last frame and its measurement), telemetry.fits (a row per\n"
      "frame) and loop.png into the output folder, replacing those of an earlier run.\n\n"
      "Example: quen-shs loop sensor --frames 500 --gain 0.4 --noise 50 --engine windowed:half-width=5 --output "
      "windy\n\n" +
      quen_shs::EngineHelp());

  quen_shs::ScoreCommand score_command;
  CLI::App* const score = app.add_subcommand("score", "Score centroiding engines against the truth");
  score->add_option("DIR", folder, "Folder with the calibration (DIR/data/...)")->required();
  score->add_option("--engine", score_command.engines, "Engine with its options; more than one may be given [all]")
      ->check(CLI::Validator(CheckEngine, ""));
  const auto add_score = add_to(score);
  add_score("--noise", score_command.options.noise, 0, 1e6, "Half-width of the pixel noise, 0 to 1e6");
  add_score("--range", score_command.options.range, 0, 12, "Displacements are within this range, pixels, 0 to 12");
  add_score("--frames", score_command.options.frames, 1, 100000, "Number of frames, 1 to 100000");
  add_score("--seed", score_command.options.seed, 0, std::numeric_limits<std::uint32_t>::max(),
            "Seed of displacements and noise; equal seeds give equal scores, but for the time");
  score->add_option("--plot", score_command.picture, "PNG file for the errors against the noise, 1 to 1000 [none]");
  score->footer(
      "Renders frames with known displacements, measures them with each engine, and prints bias, RMS error, gain,\n"
      "error of the light, share of failed spots (off by more than a pixel) and time. The least RMS is that of the\n"
      "best linear unbiased estimator for this spot and noise.\n\n"
      "Example: quen-shs score sensor --noise 50 --engine weighted --engine brightest:number=25 --plot errors.png\n\n" +
      quen_shs::EngineHelp());

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool unknown_subcommand = app.get_subcommands().empty() && !app.remaining().empty();
    const int code = unknown_subcommand ? app.exit(CLI::ExtrasError(app.remaining())) : app.exit(error);
    return code == 0 ? 0 : kWrongUsage;
  }

  if (calibrate->parsed()) {
    quen_shs::Calibrate(folder, force);
  } else if (score->parsed()) {
    if (score_command.engines.empty()) score_command.engines = quen_shs::EngineNames();
    quen_shs::Score(folder, score_command);
  } else {
    quen_shs::Loop(folder, output.empty() ? (std::filesystem::path(folder) / "loop").string() : output, options);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "quen-shs: %s\n", Reason(error).c_str()));
    return kFailed;
  }
}
