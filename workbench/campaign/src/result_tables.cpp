#include "workbench/campaign/result_tables.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>
#include <variant>

#include "workbench/fits/header.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/memory_fits.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

constexpr std::size_t kRowsAtOnce = 4096;  // runs, or rows

/// Calls `look` with the number and the record of each run.
template <typename Look>
void ForEachRun(const CampaignFolder& folder, const Look& look) {
  for (std::uint64_t first = 0; first < folder.results.Runs(); first += kRowsAtOnce) {
    ThrowIfInterrupted();
    const std::vector<RunRecord> records = folder.results.Read(first, kRowsAtOnce);
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

void WriteAt(const Handle& table, int column, LONGLONG row, std::vector<double>& values, int& status) {
  fits_write_col(table->file, TDOUBLE, column, row, 1, static_cast<LONGLONG>(values.size()), values.data(), &status);
}
void WriteAt(const Handle& table, int column, LONGLONG row, std::vector<long long>& values, int& status) {
  fits_write_col(table->file, TLONGLONG, column, row, 1, static_cast<LONGLONG>(values.size()), values.data(), &status);
}
void WriteAt(const Handle& table, int column, LONGLONG row, std::vector<std::string>& values, int& status) {
  std::vector<char*> texts;
  texts.reserve(values.size());
  for (std::string& value : values) texts.push_back(value.data());
  fits_write_col(table->file, TSTRING, column, row, 1, static_cast<LONGLONG>(values.size()), texts.data(), &status);
}

/// Rows of a table: values go into its columns one after the other.
class Rows {
 public:
  explicit Rows(std::vector<TableColumn> columns) : columns_(std::move(columns)) {}

  void Begin() { next_ = 0; }
  void Add(double value) { std::get<0>(columns_[next_++].values).push_back(value); }
  void Add(std::uint64_t value) { std::get<1>(columns_[next_++].values).push_back(static_cast<long long>(value)); }
  void Add(const std::string& value) { std::get<2>(columns_[next_++].values).push_back(value); }
  void Add(const OptionValue& value) {
    if (const double* const number = std::get_if<double>(&value)) return Add(*number);
    if (const bool* const flag = std::get_if<bool>(&value)) return Add(std::uint64_t{*flag ? 1U : 0U});
    Add(std::get<std::string>(value));
  }
  void End() { ++count_; }

  [[nodiscard]] std::size_t Count() const { return count_; }
  [[nodiscard]] std::vector<TableColumn>& Columns() { return columns_; }

  /// Forgets all rows; the columns stay.
  void Clear() {
    for (TableColumn& column : columns_) std::visit([](auto& values) { values.clear(); }, column.values);
    count_ = 0;
  }

 private:
  std::vector<TableColumn> columns_;
  std::size_t next_ = 0;
  std::size_t count_ = 0;
};

/// A FITS file with a table that takes rows some thousands at a time.
class FitsTable {
 public:
  FitsTable(std::string name, std::vector<TableColumn> columns) : name_(std::move(name)), waiting_(std::move(columns)) {
    std::vector<std::pair<std::string, std::string>> formats;
    for (const TableColumn& column : waiting_.Columns()) formats.emplace_back(column.name, FormatOf(column));
    const Handle& table = fits_.AddTable(name_, formats);
    int number = 0;
    for (const TableColumn& column : waiting_.Columns()) {
      ++number;
      if (!column.unit.empty()) WriteKey(table, fmt::format("TUNIT{}", number), column.unit, column.comment);
    }
    WriteCreator(table, "campaign");
    table_ = &table;
  }

  /// To be added to, row by row.
  [[nodiscard]] Rows& Waiting() { return waiting_; }

  void WriteIfMany() {
    if (waiting_.Count() >= kRowsAtOnce) Write();
  }

  std::string Bytes() {
    Write();
    return fits_.Bytes();
  }

 private:
  static std::string FormatOf(const TableColumn& column) {
    if (std::holds_alternative<std::vector<double>>(column.values)) return "D";
    return std::holds_alternative<std::vector<long long>>(column.values) ? "K" : fmt::format("{}A", column.width);
  }

  void Write() {
    if (waiting_.Count() == 0) return;
    int status = 0;
    int number = 0;
    for (TableColumn& column : waiting_.Columns()) {
      ++number;
      std::visit([&](auto& values) { WriteAt(*table_, number, written_ + 1, values, status); }, column.values);
    }
    if (status != 0) throw std::runtime_error(fmt::format("cannot make the table \"{}\" in memory", name_));
    written_ += static_cast<LONGLONG>(waiting_.Count());
    waiting_.Clear();
  }

  std::string name_;
  Rows waiting_;
  MemoryFits fits_ = MemoryFits(MemoryFits::Dates::kNone);
  const Handle* table_ = nullptr;
  LONGLONG written_ = 0;
};

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

void AddRun(const Campaign& campaign, std::uint64_t run, const RunRecord& record, Rows& rows) {
  const std::uint64_t point = run / campaign.repeats;
  rows.Begin();
  rows.Add(run);
  rows.Add(point);
  for (const OptionValue& value : campaign.ValuesAt(point)) rows.Add(value);
  rows.Add(std::uint64_t{campaign.SeedOf(run)});
  for (const double value : record.values) rows.Add(value);
  rows.Add(std::uint64_t{record.state == RunState::kFailed ? 1U : 0U});
  rows.Add(record.failure);
  rows.End();
}

void AddPoint(const Campaign& campaign, const PointSummary& summary, Rows& rows) {
  rows.Begin();
  rows.Add(summary.point);
  for (const OptionValue& value : campaign.ValuesAt(summary.point)) rows.Add(value);
  rows.Add(summary.runs);
  rows.Add(summary.failed);
  for (const auto& [mean, scatter, standard_error] : summary.results) {
    rows.Add(mean);
    rows.Add(scatter);
    rows.Add(standard_error);
  }
  rows.End();
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

/// @param after_run  called after what there is of each run has been added
template <typename AfterRun>
void Merge(const CampaignFolder& folder, Rows& runs, Rows& points, const AfterRun& after_run) {
  PointSums sums(folder);
  ForEachRun(folder, [&](std::uint64_t run, const RunRecord& record) {
    if (IsThere(record)) AddRun(folder.campaign, run, record, runs);
    sums.Add(run, record, [&](const PointSummary& summary) { AddPoint(folder.campaign, summary, points); });
    after_run();
  });
}

}  // namespace

void ForEachPoint(const CampaignFolder& folder, const std::function<void(const PointSummary&)>& look) {
  PointSums sums(folder);
  ForEachRun(folder, [&](std::uint64_t run, const RunRecord& record) { sums.Add(run, record, look); });
}

MergedTables MergeResults(const CampaignFolder& folder, bool takes_part) {
  FitsTable runs("runs", ColumnsOfRuns(folder.campaign, LongestFailure(folder, takes_part)));
  FitsTable points("points", ColumnsOfPoints(folder.campaign));
  Merge(folder, runs.Waiting(), points.Waiting(), [&] {
    runs.WriteIfMany();
    points.WriteIfMany();
  });
  return {runs.Bytes(), points.Bytes()};
}

MergedColumns MergeColumns(const CampaignFolder& folder, bool takes_part) {
  Rows runs(ColumnsOfRuns(folder.campaign, LongestFailure(folder, takes_part)));
  Rows points(ColumnsOfPoints(folder.campaign));
  Merge(folder, runs, points, [] {});
  return {std::move(runs.Columns()), std::move(points.Columns())};
}

}  // namespace quen::workbench
