#include "workbench/campaign/result_tables.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>
#include <variant>

#include "workbench/fits/big_endian.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/memory_fits.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kRunsAtATime = 4096;

/// Calls `look` with the number and the record of each run.
template <typename Look>
void ForEachRun(const CampaignFolder& folder, const Look& look) {
  for (std::uint64_t first = 0; first < folder.results.Runs(); first += kRunsAtATime) {
    ThrowIfInterrupted();
    const std::vector<RunRecord> records = folder.results.Read(first, kRunsAtATime);
    for (std::size_t k = 0; k < records.size(); ++k) look(first + k, records[k]);
  }
}

bool IsThere(const RunRecord& record) { return record.state == RunState::kDone || record.state == RunState::kFailed; }

// --- Statistics

/// Mean and sum of squared deviations, one value after the other (Welford 1962).
class Moments {
 public:
  void Add(double value) {
    count_ += 1.0;
    const double deviation = value - mean_;
    mean_ += deviation / count_;
    squares_ += deviation * (value - mean_);
  }

  [[nodiscard]] Statistic Result() const {
    constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    if (count_ < 1.0) return {kUnknown, kUnknown, kUnknown};
    if (count_ < 2.0) return {mean_, kUnknown, kUnknown};
    const double scatter = std::sqrt(squares_ / (count_ - 1.0));
    return {mean_, scatter, scatter / std::sqrt(count_)};
  }

 private:
  double count_ = 0.0;
  double mean_ = 0.0;
  double squares_ = 0.0;
};

/// Adds up runs, which come in their order, and hands over each point when it is complete.
class PointSums {
 public:
  explicit PointSums(const CampaignFolder& folder)
      : repeats_(folder.campaign.repeats), moments_(folder.campaign.Rules().results.size()) {}

  template <typename Look>
  void Add(std::uint64_t run, const RunRecord& record, const Look& look) {
    if (IsThere(record)) {
      ++summary_.runs;
      summary_.failed += record.state == RunState::kFailed ? 1U : 0U;
    }
    if (record.state == RunState::kDone) {
      for (std::size_t k = 0; k < moments_.size(); ++k) moments_[k].Add(record.values[k]);
    }
    if ((run + 1) % repeats_ != 0) return;
    for (const Moments& moments : moments_) summary_.results.push_back(moments.Result());
    look(std::as_const(summary_));
    summary_ = {.point = summary_.point + 1};
    moments_.assign(moments_.size(), {});
  }

 private:
  std::uint64_t repeats_;
  std::vector<Moments> moments_;
  PointSummary summary_;
};

// --- Tables of columns that a campaign decides

template <typename T>
TableColumn NumberColumn(const std::string& name, const std::string& unit = "", const std::string& comment = "") {
  return {name, unit, comment, std::vector<T>()};
}

/// CFITSIO has no zero-width texts in all of its functions.
TableColumn TextColumn(const std::string& name, std::size_t width) {
  return {name, "", "", std::vector<std::string>(), std::max<std::size_t>(width, 1)};
}

/// Rows of a table as its columns: values go into these one after the other.
class ColumnRows {
 public:
  explicit ColumnRows(std::vector<TableColumn> columns) : columns_(std::move(columns)) {}

  void Add(double value) { std::get<0>(columns_[next_++].values).push_back(value); }
  void Add(std::uint64_t value) { std::get<1>(columns_[next_++].values).push_back(static_cast<long long>(value)); }
  void Add(const std::string& value) { std::get<2>(columns_[next_++].values).push_back(value); }
  void EndRow() { next_ = 0; }

  [[nodiscard]] std::vector<TableColumn>& Columns() { return columns_; }

 private:
  std::vector<TableColumn> columns_;
  std::size_t next_ = 0;
};

std::string FormatOf(const TableColumn& column) {
  if (std::holds_alternative<std::vector<double>>(column.values)) return "D";
  return std::holds_alternative<std::vector<long long>>(column.values) ? "K" : fmt::format("{}A", column.width);
}

/// The FITS file with the table, which has no rows yet.
std::string EmptyTable(const std::string& name, const std::vector<TableColumn>& columns) {
  std::vector<std::pair<std::string, std::string>> formats;
  formats.reserve(columns.size());
  for (const TableColumn& column : columns) formats.emplace_back(column.name, FormatOf(column));
  MemoryFits fits(MemoryFits::Dates::kNone);
  const quen::common::Fits::Handle& table = fits.AddTable(name, formats);
  for (std::size_t k = 0; k < columns.size(); ++k) {
    const auto& [column, unit, comment, values, width] = columns[k];
    if (!unit.empty()) WriteKey(table, fmt::format("TUNIT{}", k + 1), unit, comment);
  }
  WriteCreator(table, "campaign");
  return fits.Bytes();
}

/// Rows of a table in a FITS file.
class FitsRows {
 public:
  FitsRows(const std::string& name, const std::vector<TableColumn>& columns, ByteSink sink)
      : table_(EmptyTable(name, columns), std::move(sink)) {
    for (const TableColumn& column : columns) widths_.push_back(column.width);
  }

  void Add(double value) { AddNumber(value); }
  void Add(std::uint64_t value) { AddNumber(value); }
  void Add(const std::string& value) {
    const std::size_t end = row_.size() + widths_[next_++];
    row_ += value;
    row_.resize(end, ' ');
  }
  void EndRow() {
    table_.Add(row_);
    row_.clear();
    next_ = 0;
  }
  void End() { table_.End(); }

 private:
  template <typename T>
  void AddNumber(T value) {
    AppendBigEndian(value, row_);
    ++next_;
  }

  LongTable table_;
  std::vector<std::size_t> widths_;  ///< of texts
  std::string row_;
  std::size_t next_ = 0;
};

template <typename Rows>
void AddValue(const OptionValue& value, Rows& rows) {
  if (const double* const number = std::get_if<double>(&value)) return rows.Add(*number);
  if (const bool* const flag = std::get_if<bool>(&value)) return rows.Add(std::uint64_t{*flag ? 1U : 0U});
  rows.Add(std::get<std::string>(value));
}

/// Names of columns have no dashes.
std::string ColumnName(std::string name) {
  std::ranges::replace(name, '-', '_');
  return name;
}

TableColumn ColumnOf(const Axis& axis) {
  const OptionValue first = axis.At(0);
  const std::string name = ColumnName(axis.Name());
  if (std::holds_alternative<double>(first)) return NumberColumn<double>(name);
  if (std::holds_alternative<bool>(first)) return NumberColumn<long long>(name);
  std::size_t width = 0;
  for (std::uint64_t k = 0; k < axis.Size(); ++k) width = std::max(width, std::get<std::string>(axis.At(k)).size());
  return TextColumn(name, width);
}

std::vector<TableColumn> ColumnsOfRuns(const Campaign& campaign, std::size_t longest_failure) {
  std::vector<TableColumn> columns = {NumberColumn<long long>("run"), NumberColumn<long long>("point")};
  for (const Axis& axis : campaign.axes) columns.push_back(ColumnOf(axis));
  columns.push_back(NumberColumn<long long>("seed"));
  for (const ResultColumn& result : campaign.Rules().results) {
    columns.push_back(NumberColumn<double>(result.name, result.unit, result.what));
  }
  columns.push_back(NumberColumn<long long>("failed"));
  columns.push_back(TextColumn("failure", longest_failure));
  return columns;
}

std::vector<TableColumn> ColumnsOfPoints(const Campaign& campaign) {
  std::vector<TableColumn> columns = {NumberColumn<long long>("point")};
  for (const Axis& axis : campaign.axes) columns.push_back(ColumnOf(axis));
  columns.push_back(NumberColumn<long long>("runs"));
  columns.push_back(NumberColumn<long long>("failures"));
  for (const ResultColumn& result : campaign.Rules().results) {
    const std::string name = result.name;
    columns.push_back(NumberColumn<double>(name + "_mean", result.unit, result.what));
    columns.push_back(NumberColumn<double>(name + "_scatter", result.unit, "of a run"));
    columns.push_back(NumberColumn<double>(name + "_error", result.unit, "standard error of the mean"));
  }
  return columns;
}

template <typename Rows>
void AddRun(const Campaign& campaign, std::uint64_t run, const RunRecord& record, Rows& rows) {
  const std::uint64_t point = run / campaign.repeats;
  rows.Add(run);
  rows.Add(point);
  for (const OptionValue& value : campaign.ValuesAt(point)) AddValue(value, rows);
  rows.Add(std::uint64_t{campaign.SeedOf(run)});
  for (const double value : record.values) rows.Add(value);
  rows.Add(std::uint64_t{record.state == RunState::kFailed ? 1U : 0U});
  rows.Add(record.failure);
  rows.EndRow();
}

template <typename Rows>
void AddPoint(const Campaign& campaign, const PointSummary& summary, Rows& rows) {
  rows.Add(summary.point);
  for (const OptionValue& value : campaign.ValuesAt(summary.point)) AddValue(value, rows);
  rows.Add(summary.runs);
  rows.Add(summary.failed);
  for (const auto& [mean, scatter, standard_error] : summary.results) {
    rows.Add(mean);
    rows.Add(scatter);
    rows.Add(standard_error);
  }
  rows.EndRow();
}

/// What the first look at the results must tell: the tables have columns as wide as their longest text.
/// @throws std::runtime_error  runs are missing, and must not be
std::size_t LongestFailure(const CampaignFolder& folder, bool takes_part) {
  std::uint64_t missing = 0;
  std::size_t longest = 0;
  ForEachRun(folder, [&](std::uint64_t /*run*/, const RunRecord& record) {
    missing += IsThere(record) ? 0U : 1U;
    longest = std::max(longest, record.failure.size());
  });
  if (missing > 0 && !takes_part) {
    throw std::runtime_error(
        fmt::format("{}: expected {} runs, {} of them are missing; 'quen-shs campaign run' goes on, or give --partial",
                    folder.name, folder.results.Runs(), missing));
  }
  return longest;
}

template <typename Rows>
void Merge(const CampaignFolder& folder, Rows& runs, Rows& points) {
  PointSums sums(folder);
  ForEachRun(folder, [&](std::uint64_t run, const RunRecord& record) {
    if (IsThere(record)) AddRun(folder.campaign, run, record, runs);
    sums.Add(run, record, [&](const PointSummary& summary) { AddPoint(folder.campaign, summary, points); });
  });
}

}  // namespace

void ForEachPoint(const CampaignFolder& folder, const std::function<void(const PointSummary&)>& look) {
  PointSums sums(folder);
  ForEachRun(folder, [&](std::uint64_t run, const RunRecord& record) { sums.Add(run, record, look); });
}

void MergeResults(const CampaignFolder& folder, bool takes_part, ByteSink runs, ByteSink points) {
  FitsRows run_rows("runs", ColumnsOfRuns(folder.campaign, LongestFailure(folder, takes_part)), std::move(runs));
  FitsRows point_rows("points", ColumnsOfPoints(folder.campaign), std::move(points));
  Merge(folder, run_rows, point_rows);
  run_rows.End();
  point_rows.End();
}

MergedColumns MergeColumns(const CampaignFolder& folder, bool takes_part) {
  ColumnRows runs(ColumnsOfRuns(folder.campaign, LongestFailure(folder, takes_part)));
  ColumnRows points(ColumnsOfPoints(folder.campaign));
  Merge(folder, runs, points);
  return {std::move(runs.Columns()), std::move(points.Columns())};
}

}  // namespace quen::workbench
