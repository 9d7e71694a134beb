#include "workbench/sensor/calibration_lookup.hpp"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "pim/configuration_path.hpp"
#include "pim/helper.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/sensor_tables.hpp"

namespace {

std::vector<quen::workbench::InputFile>& Files() {
  static thread_local std::vector<quen::workbench::InputFile> files;
  return files;
}

std::string Missing(const std::string& folder, const std::string& path) {
  const std::optional<std::string> above = quen::workbench::CalibrationAbove(folder);
  return "no calibration in " + folder + ": " + path + " is missing; " +
         (above ? "give the folder above, " + *above + ", which has one"
                : "'quen-shs calibrate " + folder + "' makes a synthetic one");
}

/// A file that the library and `check` read several times: if it is not far too large, its bytes are fetched once, and
/// a failing disk or another program cannot change what is said of it.
quen::workbench::InputFile Opened(const std::string& path) {
  constexpr std::uint64_t kMostInMemory = 64U << 20U;
  quen::workbench::InputFile file(path, quen::workbench::Packed::kAsItIs);
  if (file.Size() <= kMostInMemory) file.TakeIntoMemory();
  return file;
}

bool IsMissing(const std::string& path) {
  std::error_code error;
  return std::filesystem::status(path, error).type() == std::filesystem::file_type::not_found;
}

bool HasAFile(const std::string& folder) {
  return !std::ranges::all_of(quen::workbench::CalibrationNames(folder), IsMissing);
}

quen::workbench::FoundFile Found(const std::string& folder, const std::string& path) {
  if (IsMissing(path)) return {path, std::nullopt, Missing(folder, path)};
  try {
    return {path, Opened(path), {}};
  } catch (const quen::workbench::Unreadable& error) {
    return {path, std::nullopt, error.what()};
  }
}

}  // namespace

// The library asks its host's lookup first; this one knows the files that the user named, if any are.
std::string pim::Helper::FindFile(const std::string& name) {
  if (Files().empty()) return FindOnConfigurationPath(name);
  const auto* const file = std::ranges::find(quen::workbench::kCalibrationFiles, name);
  const auto index = static_cast<std::size_t>(file - quen::workbench::kCalibrationFiles.begin());
  return index < Files().size() ? Files()[index].Path() : "";
}

void quen::workbench::UseCalibration(const std::string& folder) {
  std::vector<std::string> paths;
  for (const char* const name : kCalibrationFiles) {
    paths.push_back((std::filesystem::path(folder) / name).string());
    if (!std::filesystem::exists(paths.back())) throw std::runtime_error(Missing(folder, paths.back()));
  }
  std::vector<InputFile> files;
  std::ranges::transform(paths, std::back_inserter(files), Opened);
  UseCalibration(std::move(files));
}

void quen::workbench::UseCalibration(std::vector<InputFile> files) { Files() = std::move(files); }

std::optional<std::string> quen::workbench::CalibrationAbove(const std::string& folder) {
  const std::filesystem::path above = (std::filesystem::path(folder) / "..").lexically_normal();
  const std::filesystem::path data = above / std::filesystem::path(kCalibrationFiles.front()).parent_path();
  const std::string name = (above / "").parent_path().string();  // without a slash at its end
  std::error_code error;
  const bool is_data = std::filesystem::equivalent(data, std::filesystem::path(folder) / ".", error);
  return is_data && HasAFile(name) && !HasAFile(folder) ? std::optional(name) : std::nullopt;
}

std::vector<quen::workbench::FoundFile> quen::workbench::FindCalibration(const std::string& folder) {
  const std::vector<std::string> paths = CalibrationNames(folder);
  if (!HasAFile(folder)) throw std::runtime_error(Missing(folder, paths.front()));
  std::vector<FoundFile> files;
  std::ranges::transform(paths, std::back_inserter(files),
                         [&](const std::string& path) { return Found(folder, path); });
  return files;
}

std::span<const quen::workbench::InputFile> quen::workbench::CalibrationFiles() { return Files(); }

void quen::workbench::RequireSoundCalibration() {
  for (const InputFile& file : Files()) {
    static_cast<void>(OpenFits(file, std::nullopt));
    for (const char* const table : {kRegionTable, kFlagTable}) {
      if (HasTable(file, table)) static_cast<void>(OpenFits(file, table));
    }
  }
}

std::string quen::workbench::WithCalibrationNames(std::string message) {
  for (const InputFile& file : Files()) message = file.WithName(std::move(message));
  return message;
}

void quen::workbench::RequireFlags(const quen::shssim::ShsSimulator& simulator, const std::string& folder) {
  const std::size_t flags = simulator.RoisUsed().size();
  const std::size_t used = UsedIndices(simulator.RoisUsed()).size();
  if (used == kNumRoisUsed || flags >= kNumRois) return;
  throw std::runtime_error("the calibration in " + folder + " has " + std::to_string(flags) + " usage flags, " +
                           std::to_string(used) + " of them set; expected " + std::to_string(kNumRois) + " and " +
                           std::to_string(kNumRoisUsed) + "; 'quen-shs check " + folder + "' tells more");
}
