#include "workbench/check/check.hpp"

#include <new>
#include <optional>
#include <stdexcept>

#include "workbench/fits/content.hpp"
#include "workbench/sensor/calibration_lookup.hpp"

namespace quen::workbench {
namespace {

void Append(Findings& findings, const Findings& more) { findings.insert(findings.end(), more.begin(), more.end()); }

/// The calibration as every host loads it, or why it cannot be loaded.
std::optional<quen::shssim::ShsSimulator> Load(Findings& findings) {
  try {
    std::optional<quen::shssim::ShsSimulator> simulator(MakeSimulator());
    findings.push_back({Verdict::kGood, "loading", "the library loads it"});
    return simulator;
  } catch (const std::bad_alloc&) {
    throw;  // says nothing of the calibration
  } catch (const std::exception& error) {
    if (IsFailureToOpen(error)) throw;  // nor does this
    findings.push_back({Verdict::kWrong, "loading", std::string("the library refuses it: ") + error.what()});
    return std::nullopt;
  }
}

}  // namespace

Findings CheckCalibration(const std::string& folder) {
  UseCalibration(folder);
  Findings findings = CheckFiles(CalibrationFiles());
  if (const auto simulator = Load(findings)) {
    Append(findings, CheckRegions(*simulator));
    Append(findings, CheckMatrices(*simulator));
  }
  return findings;
}

}  // namespace quen::workbench
