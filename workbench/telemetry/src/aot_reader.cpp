#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "workbench/fits/content.hpp"
#include "workbench/fits/numbers.hpp"
#include "workbench/fits/table.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/telemetry/aot.hpp"
#include "workbench/telemetry/src/aot_images.hpp"
#include "workbench/telemetry/src/aot_tables.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

bool IsText(aot::Kind kind) { return kind == aot::Kind::kText || kind == aot::Kind::kRow || kind == aot::Kind::kImage; }

/// Whether values of CFITSIO's type are such ones; numbers may be of another width than ours.
bool IsOf(aot::Kind kind, int type) {
  switch (kind) {
    case aot::Kind::kText:
    case aot::Kind::kRow:
    case aot::Kind::kImage:
      return type == TSTRING;
    case aot::Kind::kWhole:
      return type == TSHORT || type == TLONG || type == TLONGLONG;
    case aot::Kind::kNumber:
      return type == TDOUBLE || type == TFLOAT;
    case aot::Kind::kList:
      return type == -TDOUBLE || type == -TFLOAT;
  }
  return false;
}

struct Text {
  std::string text;
};

std::vector<std::string> TextsOf(const InputFile& file, const aot::Table& table, const aot::Column& column) {
  const std::array<quen::workbench::Column<Text>, 1> columns = {{{column.name, "", "", &Text::text}}};
  std::vector<std::string> texts;
  for (const Text& row : ReadRows<Text>(file, table.name, std::span<const quen::workbench::Column<Text>>(columns))) {
    texts.emplace_back(Trimmed(row.text));
  }
  return texts;
}

std::string PlaceOf(const InputFile& file, const aot::Table& table, const aot::Column& column) {
  return fmt::format("{}: its table \"{}\", column \"{}\"", file.Name(), table.name, column.name);
}

/// How many rows a table has.
/// @throws std::runtime_error  it lacks a column, or has it of another type
std::size_t RowsOf(const InputFile& file, const aot::Table& table) {
  RequireTable(file, table.name);
  const Handle handle = OpenFits(file, table.name);
  return Reading(file, [&] {
    for (const aot::Column& column : table.columns) {
      const auto found = quen::common::Fits::ReadTableParams(handle, column.name).second;
      if (!found.empty() && IsOf(column.kind, std::get<2>(found.front()))) continue;
      throw std::runtime_error(PlaceOf(file, table, column) + (found.empty() ? " is missing" : " is of another type"));
    }
    return std::size_t{quen::common::Fits::ReadTableParams(handle, std::nullopt).first.at(1)};
  });
}

/// What a reference of this form leads to; none if it is of another form.
std::optional<std::string> TargetOf(std::string_view reference, std::string_view form) {
  if (!reference.starts_with(form) || !reference.ends_with('>')) return std::nullopt;
  reference.remove_prefix(form.size());
  return std::string(reference.substr(0, reference.size() - 1));
}

/// The image of this name; its axes, the slowest first.
/// @throws std::runtime_error  there is none
std::pair<Handle, Axes> ImageNamed(const InputFile& file, const std::string& name) {
  Handle image = OpenImage(file, name);
  if (TextKey(file, image, "EXTNAME") != name) {  // a number counts extensions
    throw std::runtime_error(fmt::format("{}: expected an extension named {}, found none", file.Name(), name));
  }
  Axes axes = Reading(file, [&] { return quen::common::Fits::ReadImgParams(image).first; });
  std::ranges::reverse(axes);
  return {std::move(image), std::move(axes)};
}

/// Goes through the tables.
class Examination {
 public:
  explicit Examination(const InputFile& file) : file_(file) {}

  AotSummary Run() {
    for (const aot::Table& table : aot::Tables()) {
      if (table.is_optional && !HasTable(file_, table.name)) continue;
      tables_.push_back(&table);
      rows_[table.name] = RowsOf(file_, table);
      if (rows_[table.name] == 0) continue;
      std::vector<std::string> uids = TextsOf(file_, table, table.columns.front());
      uids_[table.name] = {uids.begin(), uids.end()};
    }
    for (const aot::Table* const table : tables_) {
      for (const aot::Column& column : table->columns) {
        if (rows_[table->name] > 0 && IsText(column.kind)) Follow(*table, column);
      }
      for (const std::string& uid : uids_[table->name]) RequireMain(*table, uid);
    }
    return {"", tables_.size(), references_, lengths_['t'], lengths_['s'], lengths_['m']};
  }

 private:
  void Follow(const aot::Table& table, const aot::Column& column) {
    if (column.kind == aot::Kind::kText) return;
    for (const std::string& reference : TextsOf(file_, table, column)) {
      if (reference.empty()) continue;
      const bool is_row = column.kind == aot::Kind::kRow;
      const auto target = TargetOf(reference, is_row ? aot::kRowReference : aot::kImageReference);
      if (!target) throw std::runtime_error(PlaceOf(file_, table, column) + ": " + reference + " is no such reference");
      if (is_row) {
        RequireRow(table, column, *target);
      } else {
        RequireImage(table, column, *target);
      }
      ++references_;
    }
  }

  void RequireRow(const aot::Table& table, const aot::Column& column, const std::string& uid) {
    if (uids_[column.table].contains(uid)) return;
    throw std::runtime_error(fmt::format("{} refers to the row \"{}\" of \"{}\", which is not there",
                                         PlaceOf(file_, table, column), uid, column.table));
  }

  void RequireImage(const aot::Table& table, const aot::Column& column, const std::string& name) {
    Axes axes;
    try {
      axes = ImageNamed(file_, name).second;
    } catch (const std::runtime_error& error) {
      if (IsFailureToOpen(error)) throw;
      throw std::runtime_error(fmt::format("{} refers to the image \"{}\", which is not there, or cannot be read",
                                           PlaceOf(file_, table, column), name));
    }
    RequireAxes(table, column, axes);
  }

  /// Of a file with one loop and one sensor, whose images belong together.
  void RequireAxes(const aot::Table& table, const aot::Column& column, const Axes& axes) {
    const std::string_view letters = column.axes;
    if (letters.empty() || rows_["AOT_LOOPS"] != 1 || rows_["AOT_WAVEFRONT_SENSORS"] != 1) return;
    if (axes.size() != letters.size()) {
      throw std::runtime_error(fmt::format("{}: expected an image of {} axes, found {}", PlaceOf(file_, table, column),
                                           letters.size(), axes.size()));
    }
    for (std::size_t k = 0; k < axes.size(); ++k) {
      const std::size_t expected = lengths_.emplace(letters[k], axes[k]).first->second;
      if (axes[k] == expected) continue;
      throw std::runtime_error(fmt::format("{}: expected {} along axis {} of its image, as others have, found {}",
                                           PlaceOf(file_, table, column), expected, k, axes[k]));
    }
  }

  void RequireMain(const aot::Table& table, const std::string& uid) {
    if (std::string_view(table.main).empty() || uids_[table.main].contains(uid)) return;
    throw std::runtime_error(fmt::format("{} has a row \"{}\", which \"{}\" has not",
                                         PlaceOf(file_, table, table.columns.front()), uid, table.main));
  }

  const InputFile& file_;
  std::vector<const aot::Table*> tables_;
  std::map<std::string, std::size_t> rows_;
  std::map<std::string, std::set<std::string>> uids_;
  std::map<char, std::size_t> lengths_;  ///< of the axes with a letter
  std::size_t references_ = 0;
};

/// An image of modes over time, a row per frame.
Series ReadModes(const InputFile& file, const char* name) {
  const auto [image, axes] = ImageNamed(file, name);
  if (axes.size() != 2 || axes[1] != kNumModes || axes[0] == 0) {
    throw std::runtime_error(fmt::format("{}: expected an image \"{}\" of frames x {} modes, found another one",
                                         file.Name(), name, kNumModes));
  }
  std::vector<double> values(axes[0] * axes[1]);
  ReadElements(file, image, std::nullopt, values);
  return Eigen::Map<const Series>(values.data(), static_cast<Eigen::Index>(axes[0]), kNumModes);
}

}  // namespace

bool IsAot(const InputFile& file) {
  RequireFits(file);
  return !TextKey(file, OpenFits(file, std::nullopt), aot::kVersionKey).empty();
}

AotSummary ExamineAot(const InputFile& file) {
  RequireWhole(file);
  std::string version = TextKey(file, OpenFits(file, std::nullopt), aot::kVersionKey);
  AotSummary summary = Examination(file).Run();
  summary.version = std::move(version);
  return summary;
}

std::string InWords(const AotSummary& summary) {
  const std::string content = summary.frames == 0 ? ""
                                                  : fmt::format(", {} frames of {} sub-apertures and {} modes",
                                                                summary.frames, summary.subapertures, summary.modes);
  return fmt::format("Adaptive Optics Telemetry {} in {} tables{}; all {} references hold", summary.version,
                     summary.tables, content, summary.references);
}

std::vector<FrameRecord> ReadAotRecords(const InputFile& file) {
  const Series disturbance = ReadModes(file, aot::kDisturbance);
  const Series commands = ReadModes(file, aot::kCommands);
  if (disturbance.rows() != commands.rows()) {
    throw std::runtime_error(fmt::format("{}: expected as many disturbances as commands, found {} and {}", file.Name(),
                                         disturbance.rows(), commands.rows()));
  }
  std::vector<FrameRecord> records;
  records.reserve(static_cast<std::size_t>(commands.rows()));
  for (Eigen::Index frame = 0; frame < commands.rows(); ++frame) {
    records.push_back({disturbance.row(frame).transpose(), commands.row(frame).transpose(),
                       (disturbance.row(frame) - commands.row(frame)).transpose()});
  }
  return records;
}

}  // namespace quen::workbench
