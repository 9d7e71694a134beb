#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "shssim/shs_simulator.hpp"
#include "workbench/fits/input_file.hpp"

namespace quen::workbench {

/// Makes every simulator that this thread constructs from now on load its calibration from this folder, wherever
/// CFGPATH and INTROOT point. Opens its files once, and keeps them open. Other threads have their own files in use.
/// @throws std::runtime_error  a file of the calibration is missing there, or cannot be opened
void UseCalibration(const std::string& folder);

/// The same for files that are open, in the order of kCalibrationFiles.
void UseCalibration(std::vector<InputFile> files);

/// The folder above this one, where that has a calibration, or what is left of one, and this one is its data/; none
/// otherwise.
std::optional<std::string> CalibrationAbove(const std::string& folder);

/// A file of a calibration, as it was found.
struct FoundFile {
  std::string path;
  std::optional<InputFile> file;
  std::string fault;  ///< why there is none: it is missing, no file, too long, or closed to this user
};

/// Opens the files of the calibration in a folder, in the order of kCalibrationFiles, each whatever the others are, and
/// uses none of them.
/// @throws std::runtime_error  all are missing; or the system fails, which says nothing of a file
std::vector<FoundFile> FindCalibration(const std::string& folder);

/// The files in use, in the order of kCalibrationFiles.
std::span<const InputFile> CalibrationFiles();

/// @throws std::runtime_error  a file in use is not a FITS file, or declares more data than it holds, for all of which
///                             the library would take memory
void RequireSoundCalibration();

/// A message of the library with the names of the calibration's files as the user gave them.
std::string WithCalibrationNames(std::string message);

/// @throws std::runtime_error  there are too few usage flags, so that ComputeSlopes would end the process
void RequireFlags(const quen::shssim::ShsSimulator& simulator, const std::string& folder);

/// A simulator on the calibration in use.
/// @throws std::runtime_error  the calibration is not sound, or the library refuses it
template <typename Simulator = quen::shssim::ShsSimulator>
Simulator MakeSimulator() {
  RequireSoundCalibration();
  try {
    return Simulator();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(WithCalibrationNames(error.what()));
  } catch (const std::logic_error& error) {
    throw std::runtime_error(WithCalibrationNames(error.what()));
  }
}

/// A simulator on the calibration in this folder, fit to measure.
/// @throws what UseCalibration, MakeSimulator and RequireFlags throw
template <typename Simulator = quen::shssim::ShsSimulator>
Simulator LoadSimulator(const std::string& folder) {
  UseCalibration(folder);
  Simulator simulator = MakeSimulator<Simulator>();
  RequireFlags(simulator, folder);
  return simulator;
}

}  // namespace quen::workbench
