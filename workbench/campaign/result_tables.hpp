#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "workbench/campaign/campaign_folder.hpp"
#include "workbench/fits/long_table.hpp"

/// @file
/// What the runs of a campaign have given, as tables.

namespace quen::workbench {

/// A result over the runs of a point that have not failed.
struct Statistic {
  double mean = 0.0;
  double scatter = 0.0;         ///< standard deviation of a run, with n − 1
  double standard_error = 0.0;  ///< of the mean: scatter / √n
};

struct PointSummary {
  std::uint64_t point = 0;
  std::uint64_t runs = 0;               ///< that are there, the failed ones included
  std::uint64_t failed = 0;             ///< of them
  std::vector<Statistic> results = {};  ///< in the order of the verb's; NaN where there are too few runs for them
};

/// Goes through the points of a campaign, in their order.
/// @throws std::runtime_error  results cannot be read
void ForEachPoint(const CampaignFolder& folder, const std::function<void(const PointSummary&)>& look);

/// Makes two FITS files with a table each: "runs", a row per run with its number, point, axes, seed, results, failure,
/// and "points", a row per point with its axes, runs, failures, and the statistics. They are the same bytes for the
/// same results, in whatever order, with however many processes, on whatever day these were made. Memory, some
/// megabytes, does not grow with the number of runs.
/// @param takes_part  whether runs may be missing
/// @throws std::runtime_error  results cannot be read; runs are missing; and what the sinks throw
void MergeResults(const CampaignFolder& folder, bool takes_part, ByteSink runs, ByteSink points);

/// A column of a table.
struct TableColumn {
  std::string name;
  std::string unit;  ///< empty if it has none
  std::string comment;
  std::variant<std::vector<double>, std::vector<long long>, std::vector<std::string>> values;
  std::size_t width = 0;  ///< of texts, in bytes
};

/// The same tables, column by column: in memory.
struct MergedColumns {
  std::vector<TableColumn> runs;
  std::vector<TableColumn> points;
};

/// @throws as MergeResults
MergedColumns MergeColumns(const CampaignFolder& folder, bool takes_part);

}  // namespace quen::workbench
