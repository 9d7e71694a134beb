#pragma once

#include <optional>
#include <string>
#include <vector>

#include "workbench/fits/input_file.hpp"
#include "workbench/loop/control_loop.hpp"

/// @file
/// The same loop with one gain after another.

namespace quen::workbench {

/// Gains from text "gain=FIRST:LAST:STEP", with the last one if a step ends on it.
/// @throws std::invalid_argument  not such a text, gains outside 0 to 2, or more than 1000 of them
std::vector<double> ParseSweep(const std::string& text);

struct SweepPoint {
  double gain = 0.0;
  double residual = 0.0;     ///< rad RMS over the second half of the run; infinite where the loop diverged
  double disturbance = 0.0;  ///< the same of the disturbance
  std::size_t frames = 0;    ///< how many were run
  std::size_t lost = 0;      ///< spots that were not found in them; 0 in what was read from a file

  [[nodiscard]] bool HasDiverged() const;
};

/// The gain of the least residual; none if all loops diverged.
std::optional<SweepPoint> Best(const std::vector<SweepPoint>& points);

/// Closes the loop with each gain, on the same disturbance and noise.
/// @param after_frame  called after each frame of each loop
std::vector<SweepPoint> RunSweep(Camera& camera, const Series& disturbance, const LoopOptions& options,
                                 const std::vector<double>& gains, const std::function<void()>& after_frame);

inline constexpr const char* kSweepTable = "sweep";

/// A FITS file with a binary table "sweep", a row per gain.
std::string SweepFile(const LoopOptions& options, const std::string& disturbance,
                      const std::vector<SweepPoint>& points);

/// Reads what SweepFile has made.
/// @throws std::runtime_error  the file cannot be read
std::vector<SweepPoint> ReadSweep(const InputFile& file);

}  // namespace quen::workbench
