#pragma once

#include <Eigen/Dense>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "workbench/campaign/campaign.hpp"
#include "workbench/loop/disturbance.hpp"
#include "workbench/sensor/camera.hpp"

/// @file
/// One run of a campaign. It does what the verb does with the same options and the same seed, without the verb's files.

namespace quen::workbench {

/// What all runs of a campaign read, read once.
class CampaignInputs {
 public:
  /// Uses the campaign's calibration from now on, as UseCalibration says.
  /// @throws std::runtime_error  a file that the campaign names cannot be read, or does not fit the campaign
  explicit CampaignInputs(Campaign campaign);

  [[nodiscard]] const Campaign& Of() const { return campaign_; }

  /// What the results of the runs follow from: the campaign with check sums in the place of files' names, and the
  /// version of the program. A JSON object, a line per member.
  [[nodiscard]] const std::string& Identity() const { return identity_; }

  /// The detector that settings ask for; none if they ask for none.
  [[nodiscard]] std::shared_ptr<const DetectorDescription> DetectorFor(const RunSettings& settings) const;
  /// The disturbance of a loop.
  [[nodiscard]] Series DisturbanceFor(const RunSettings& settings, std::uint32_t seed) const;

 private:
  void ReadFiles(const OptionRule& rule, const std::vector<OptionValue>& values);
  void ReadDetectorFile(const std::string& name);
  void ReadDisturbanceFile(const std::string& name);

  Campaign campaign_;
  std::string identity_;
  Eigen::VectorXd variances_;  ///< of turbulence, for the calibration's basis
  std::map<std::string, DetectorDescription> detectors_;
  std::map<std::string, Series> disturbances_;
  std::map<std::string, std::uint64_t> sums_;  ///< of the contents of all files that are named
};

struct RunResult {
  std::vector<double> values;  ///< one for each of the verb's results
  std::string failure;         ///< why it was no success, in a sentence; empty if it was one
};

/// Makes runs, one after the other. Each thread has one of its own, made before the threads begin.
class Runner {
 public:
  /// @param inputs  outlive the runner
  explicit Runner(const CampaignInputs& inputs);

  /// The result depends on the run's number alone.
  /// @param after_frame  called after each frame; what it throws passes through
  RunResult Run(std::uint64_t run, const std::function<void()>& after_frame);

 private:
  RunResult RunTheLoop(std::uint32_t seed, const std::function<void()>& after_frame);
  RunResult RunTheScore(std::uint32_t seed, const std::function<void()>& after_frame);

  const CampaignInputs& inputs_;
  Camera camera_;
  std::uint64_t point_ = UINT64_MAX;  ///< of the run before: repeats need nothing new
  RunSettings settings_;
  std::shared_ptr<const DetectorDescription> detector_;
};

}  // namespace quen::workbench
