#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "workbench/fits/input_file.hpp"
#include "workbench/fits/long_table.hpp"
#include "workbench/fits/spool.hpp"
#include "workbench/loop/control_loop.hpp"
#include "workbench/sensor/camera.hpp"

/// @file
/// A loop's telemetry in the FITS form of the "Adaptive Optics Telemetry" convention, 2.0.0: tables whose rows refer to
/// each other and to images. docs/telemetry.md has what is in them.

namespace quen::workbench {

/// Takes down a loop while it runs, and makes the file afterwards. What grows with the frames waits on the disk; memory
/// holds eight bytes for each.
class AotRecorder {
 public:
  /// @param camera       of the loop; looked at as long as this object lives
  /// @param output       name of the file
  /// @param with_frames  whether the file is to have every frame, 1.4 MB each
  /// @throws std::runtime_error  a name that ends in ".gz"; nothing can wait on the disk
  AotRecorder(const Camera& camera, LoopOptions options, const std::string& output, bool with_frames);

  /// Takes the camera's last frame and its measurement, once after each frame.
  /// @throws std::runtime_error  the disk takes no more
  void Record();

  /// Hands on the whole file.
  /// @param records      of the loop, one for each that was recorded
  /// @param disturbance  where it is from, in words
  /// @throws std::runtime_error  the disk takes no more, or CFITSIO fails
  void Write(const std::vector<FrameRecord>& records, const std::string& disturbance, const ByteSink& sink) const;

 private:
  [[nodiscard]] std::string Tables(const std::string& disturbance) const;

  const Camera& camera_;
  LoopOptions options_;
  std::string output_;
  bool has_frames_;
  std::vector<double> times_;  ///< seconds since 1970, UTC
  Spool measurements_;
  Spool coefficients_;
  Spool frames_;
};

/// Whether a FITS file says that it is such a file.
/// @throws std::runtime_error  it cannot be read
bool IsAot(const InputFile& file);

/// What such a file holds.
struct AotSummary {
  std::string version;
  std::size_t tables;
  std::size_t references;  ///< from rows to rows, and to images
  std::size_t frames;      ///< 0 of a file with more loops or sensors than one, or without measurements
  std::size_t subapertures;
  std::size_t modes;
};

/// Looks at all tables of such a file, whoever made it, and at what they refer to.
/// @throws std::runtime_error  a table or a column is missing, or of another type; a reference leads nowhere; the
///                             images of a loop do not belong together: the first of these, in a sentence
AotSummary ExamineAot(const InputFile& file);

/// The same in a sentence.
std::string InWords(const AotSummary& summary);

/// The loop in a file that AotRecorder has made.
/// @throws std::runtime_error  it cannot be read, or lacks one of the images
std::vector<FrameRecord> ReadAotRecords(const InputFile& file);

}  // namespace quen::workbench
