#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "workbench/campaign/campaign_folder.hpp"

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

/// FITS files with a table each.
struct MergedTables {
  std::string runs;    ///< table "runs": a row per run with its number, point, axes, seed, results, failure
  std::string points;  ///< table "points": a row per point with its axes, runs, failures, and the statistics
};

/// The same bytes for the same results, in whatever order, with however many processes, on whatever day they were made.
/// They are made in memory, which takes twice their size: 300 MB for a million runs of a score.
/// @param takes_part  whether runs may be missing
/// @throws std::runtime_error  results cannot be read; runs are missing
MergedTables MergeResults(const CampaignFolder& folder, bool takes_part);

/// A column of a table.
struct TableColumn {
  std::string name;
  std::string unit;  ///< empty if it has none
  std::string comment;
  std::variant<std::vector<double>, std::vector<long long>, std::vector<std::string>> values;
  std::size_t width = 0;  ///< of texts, in bytes
};

/// The same tables, column by column.
struct MergedColumns {
  std::vector<TableColumn> runs;
  std::vector<TableColumn> points;
};

/// @throws as MergeResults
MergedColumns MergeColumns(const CampaignFolder& folder, bool takes_part);

}  // namespace quen::workbench
