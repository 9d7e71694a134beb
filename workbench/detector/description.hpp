#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "centroiders/pixel_reading.hpp"
#include "common/checks/limits.hpp"
#include "common/fits/fits.hpp"
#include "detector/detector.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// A detector as a user describes it: a JSON object whose members have the names, units, ranges and defaults of those
/// of DetectorConfig. Each may be left out. Comments, // or /* */, are skipped.
///
///     {
///       "electrons_per_unit": 0.01,  // mean photo-electrons for a frame value of 1
///       "read_noise": 3,             // electrons RMS
///       "flat_map": "flat.fits"      // from this file's folder on; from the current one if this is a stream
///     }
///
/// The seed is not among them: it belongs to a run.

namespace quen::workbench {

/// What a map is from.
struct MapSource {
  std::string member;  ///< of DetectorConfig
  std::string file;    ///< as the description names it
};

struct DetectorDescription {
  quen::detector::DetectorConfig config;
  std::vector<MapSource> maps;     ///< that it has
  bool engines_know_maps = false;  ///< whether engines are told of them
  std::vector<InputFile> files;    ///< that it was read from: the description, then the maps
};

/// Parameters that a user gives over those that a detector has. Their limits are those of DetectorLimits.
struct DetectorChanges {
  static constexpr common::Limits kPhotons = {0.0, 1e9};

  std::optional<double> photons = {};  ///< electrons of a whole spot
  std::optional<double> background = {};
  std::optional<double> em_gain = {};
  std::optional<double> read_noise = {};
  std::optional<double> pedestal = {};

  [[nodiscard]] bool AreAny() const;
};

/// Gives a detector those that are given.
void Change(quen::detector::DetectorConfig& config, const DetectorChanges& changes);

inline constexpr const char* kSeedKeyword = "SEED";  ///< beside a detector's parameters in headers

/// Of the pixels of a detector's frames, or of the simulator's where there is none: a detector counts from 0 on.
inline quen::centroiders::PixelSign SignOf(const std::shared_ptr<const DetectorDescription>& detector) {
  return detector ? quen::centroiders::PixelSign::kUnsigned : quen::centroiders::PixelSign::kSigned;
}

/// Reads a description and its maps.
/// @throws std::runtime_error  a file cannot be read, is no such object, has a member that a detector has not, or a
///                             value out of its range: the file, the member, what was expected and found
DetectorDescription ReadDetector(const std::string& name);

/// A description with all members, each with what it is: what a user begins with.
/// @param maps  files of the maps that it names
std::string DescribedInFull(const quen::detector::DetectorConfig& config, const std::vector<MapSource>& maps);

/// Light and read noise, for people.
std::string InWords(const DetectorDescription& detector);

/// Every parameter, in the header that the file stands on.
void WriteDetectorKeys(const quen::common::Fits::Handle& file, const DetectorDescription& detector);

/// Copies what the header of a detector's frame says of the detector, and the seed, to another header; nothing where
/// the frame is not a detector's.
/// @param file  the frame's
/// @throws std::runtime_error  it cannot be read or written
void CopyDetectorKeys(const InputFile& file, const quen::common::Fits::Handle& from,
                      const quen::common::Fits::Handle& to);

}  // namespace quen::workbench
