#include "workbench/check/check.hpp"

#include <algorithm>
#include <iterator>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

#include "workbench/check/src/checks.hpp"
#include "workbench/check/src/examine_parts.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/matrix_file.hpp"
#include "workbench/sensor/sensor_tables.hpp"

namespace quen::workbench {
namespace {

void Append(Findings& findings, const Findings& more) { findings.insert(findings.end(), more.begin(), more.end()); }

/// Open files, in the order of kCalibrationFiles; none where one is missing.
using Files = std::vector<const InputFile*>;

bool AreAllThere(const Files& files) { return std::ranges::count(files, nullptr) == 0; }

/// In use from now on, if they are all there.
Files InUse(std::vector<FoundFile>& found) {
  Files files;
  std::ranges::transform(found, std::back_inserter(files),
                         [](const FoundFile& one) { return one.file ? &*one.file : nullptr; });
  if (!AreAllThere(files)) return files;
  std::vector<InputFile> used;
  used.reserve(found.size());
  for (FoundFile& one : found) used.push_back(*std::move(one.file));
  UseCalibration(std::move(used));
  std::ranges::transform(CalibrationFiles(), files.begin(), [](const InputFile& file) { return &file; });
  return files;
}

/// The calibration as every host loads it, or why it cannot be loaded.
std::optional<quen::shssim::ShsSimulator> Load(Findings& findings) {
  try {
    std::optional<quen::shssim::ShsSimulator> simulator(MakeSimulator());
    findings.push_back({Verdict::kGood, "loading", "loading", "the library loads it", "", {}});
    return simulator;
  } catch (const std::bad_alloc&) {
    throw;  // says nothing of the calibration
  } catch (const std::exception& error) {
    if (IsFailureToOpen(error)) throw;                                // nor does this
    if (std::ranges::any_of(findings, IsWrong)) return std::nullopt;  // the file that it refuses is named already
    findings.push_back({Verdict::kWrong,
                        "loading",
                        "loading",
                        std::string("the library refuses it: ") + error.what(),
                        "write the file again as it says",
                        {}});
    return std::nullopt;
  }
}

/// What a file holds, if it can be read.
template <typename Read>
auto Readable(const Read& read) -> std::optional<decltype(read())> {
  try {
    return read();
  } catch (const std::runtime_error& error) {
    if (IsFailureToOpen(error)) throw;
    return std::nullopt;
  }
}

Regions ReadRegionsAndFlags(const InputFile& file) {
  const auto flags = OpenFits(file, kFlagTable);
  return {ReadRegions(file), quen::common::Fits::ReadColumnOrThrow<std::uint8_t>(flags, FlagColumnNames().front())};
}

/// What those files hold that nothing is wrong with.
/// @param findings  one for each file
ReadableParts PartsOf(const Files& files, const Findings& findings) {
  ReadableParts parts;
  if (!IsWrong(findings[0])) parts.m2s = Readable([&] { return ReadMatrix(*files[0]); });
  if (!IsWrong(findings[1])) parts.cm = Readable([&] { return ReadMatrix(*files[1]); });
  if (!IsWrong(findings[2])) parts.regions = Readable([&] { return ReadRegionsAndFlags(*files[2]); });
  return parts;
}

}  // namespace

Findings Examine(const CalibrationContent& content) {
  const auto lattice = Lattice::Fit(content.rois);
  Findings findings = CheckRegions(content, lattice);
  Append(findings, CheckMatrices(content, lattice));
  return findings;
}

Examination CheckCalibration(const std::string& folder) {
  std::vector<FoundFile> found = FindCalibration(CalibrationAbove(folder).value_or(folder));
  Examination examination = {CheckFiles(found), std::nullopt};
  Findings& findings = examination.findings;
  const Files files = InUse(found);
  if (const auto simulator = AreAllThere(files) ? Load(findings) : std::nullopt) {
    examination.content = ContentOf(*simulator);
    Append(findings, Examine(*examination.content));
  } else {
    Append(findings, ExamineParts(PartsOf(files, findings)));
  }
  return examination;
}

}  // namespace quen::workbench
