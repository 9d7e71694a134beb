#pragma once

#include <string>
#include <vector>

#include "centroiders/score.hpp"
#include "tools/quen-shs/src/cli/command_line.hpp"
#include "tools/quen-shs/src/loop/control_loop.hpp"
#include "tools/quen-shs/src/sensor/basis.hpp"
#include "tools/quen-shs/src/sensor/geometry.hpp"
#include "tools/quen-shs/src/sensor/poke.hpp"

/// @file
/// The verbs, a file each. For every one: its arguments as data, the command line that fills them, and what it does. Each
/// prints its result on standard output, replaces the files that it is told to write, and throws on failure:
/// std::runtime_error with one sentence, or what the library throws.

namespace quen_shs {

/// All verbs.
void AddVerbs(CommandLine& line);

struct CalibrateCommand {
  std::string folder;
  bool force = false;
  Geometry geometry;
  std::string basis = kZernikeWord;
  bool is_measured = false;
  PokeOptions poke;  ///< where the matrix is measured
  bool json = false;
};
void AddCalibrate(CommandLine& line);
/// Writes a synthetic calibration below a folder.
void Calibrate(const CalibrateCommand& command);

struct CheckCommand {
  std::string folder;
  bool json = false;
};
void AddCheck(CommandLine& line);
/// Prints what is to be said of a calibration. Throws after that where something is wrong.
void Check(const CheckCommand& command);

struct FrameCommand {
  std::string folder;
  std::string displacements;  ///< file; none if empty
  std::string modes;          ///< MODE=RADIANS,…; none if empty
  std::string shape;          ///< NAME:PIXELS; none if empty. One of the three at most; none of them: no displacements.
  double noise = 10.0;
  std::uint32_t seed = 1;
  std::string output;  ///< file; DIR/frame.fits if empty
  std::string truth;   ///< file for the displacements; none if empty
  std::string png;     ///< file; none if empty
  bool json = false;
};
void AddFrame(CommandLine& line);
/// Renders one frame.
void RenderFrame(const FrameCommand& command);

struct MeasureCommand {
  std::string folder;
  std::string frame;
  std::string engine = kDefaultEngine;
  double limit = kSlopeLimit;
  std::string truth;   ///< file with the true displacements; none if empty
  std::string output;  ///< file; DIR/slopes.fits if empty
  bool json = false;
};
void AddMeasure(CommandLine& line);
/// Measures a frame file.
void Measure(const MeasureCommand& command);

struct ViewCommand {
  std::string file;
  std::string calibration;  ///< folder, for the outlines on a frame; none if empty
  std::string slopes;       ///< file, for the arrows on a frame; none if empty
  std::string stretch = "log";
  std::string output;  ///< FILE with .png instead of .fits if empty
  bool json = false;
};
void AddView(CommandLine& line);
/// Draws any file of ours.
void View(const ViewCommand& command);

struct ScoreCommand {
  std::string folder;
  std::vector<std::string> engines;  ///< as for MakeEngine; all if empty
  quen::centroiders::ScoreOptions options;
  std::string fits;     ///< file for the table; none if empty
  std::string picture;  ///< file for the errors against the noise; none if empty
  bool json = false;
};
void AddScore(CommandLine& line);
/// Scores centroiding engines against the truth.
void Score(const ScoreCommand& command);

struct LoopCommand {
  std::string folder;
  int frames = 1000;
  double strength = 20.0;   ///< D/r0 of the disturbance
  std::string disturbance;  ///< file; turbulence of that strength if empty
  LoopOptions options;
  std::string sweep;   ///< gain=FIRST:LAST:STEP; one loop if empty
  std::string output;  ///< folder; DIR/loop if empty
  bool json = false;
};
void AddLoop(CommandLine& line);
/// Closes a loop and writes frame, slopes, telemetry and picture, or a sweep's table and picture. Throws after that where
/// the loop did not converge.
void Loop(const LoopCommand& command);

void AddManual(CommandLine& line);
void AddCompletion(CommandLine& line);

}  // namespace quen_shs
