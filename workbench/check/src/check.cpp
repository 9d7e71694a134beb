#include "workbench/check/check.hpp"

#include <algorithm>
#include <filesystem>
#include <new>
#include <optional>
#include <stdexcept>

#include "workbench/fits/content.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"

namespace quen::workbench {
namespace {

void Append(Findings& findings, const Findings& more) { findings.insert(findings.end(), more.begin(), more.end()); }

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

/// The calibration's folder, where a user gives the one of its files.
std::string AboveData(const std::string& folder) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (fs::exists(fs::path(folder) / kCalibrationFiles[0], error)) return folder;
  const fs::path whole = fs::canonical(folder, error);
  const bool is_data = !error && whole.filename() == "data" && fs::exists(whole / "M2S.fits", error);
  return is_data ? whole.parent_path().string() : folder;
}

}  // namespace

Findings Examine(const CalibrationContent& content) {
  Findings findings = CheckRegions(content);
  Append(findings, CheckMatrices(content));
  return findings;
}

Examination CheckCalibration(const std::string& folder) {
  UseCalibration(AboveData(folder));
  Examination examination = {CheckFiles(CalibrationFiles()), std::nullopt};
  if (const auto simulator = Load(examination.findings)) {
    examination.content = ContentOf(*simulator);
    Append(examination.findings, Examine(*examination.content));
  }
  return examination;
}

}  // namespace quen::workbench
