#include "workbench/engines/score_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/memory_fits.hpp"

namespace quen::workbench {
namespace {

using quen::centroiders::Score;
using quen::common::Fits::Handle;

/// A column of numbers, and where a score has it.
struct Column {
  const char* name;
  double& (*value)(Score&);
};

constexpr std::array<Column, 13> kColumns = {{
    {"bias_x", [](Score& s) -> double& { return s.x.bias; }},
    {"bias_y", [](Score& s) -> double& { return s.y.bias; }},
    {"rms_x", [](Score& s) -> double& { return s.x.rms; }},
    {"rms_y", [](Score& s) -> double& { return s.y.rms; }},
    {"gain_x", [](Score& s) -> double& { return s.x.gain; }},
    {"gain_y", [](Score& s) -> double& { return s.y.gain; }},
    {"offset_x", [](Score& s) -> double& { return s.x.offset; }},
    {"offset_y", [](Score& s) -> double& { return s.y.offset; }},
    {"worst", [](Score& s) -> double& { return s.worst; }},
    {"flux_bias", [](Score& s) -> double& { return s.flux_bias; }},
    {"flux_rms", [](Score& s) -> double& { return s.flux_rms; }},
    {"failed", [](Score& s) -> double& { return s.failed; }},
    {"microseconds", [](Score& s) -> double& { return s.microseconds; }},
}};
constexpr int kFirstNumber = 3;  // after engine and noise

void WriteName(const Handle& file, long row, const std::string& name) {
  std::string copy = name;  // CFITSIO takes no const text
  char* text = copy.data();
  int status = 0;
  fits_write_col(file->file, TSTRING, 1, row, 1, 1, static_cast<void*>(&text), &status);
  if (status == 0) return;
  fits_clear_errmsg();
  throw std::runtime_error(fmt::format("cannot write the engines' names (CFITSIO status {})", status));
}

std::string ReadName(const Handle& file, const std::string& file_name, long row) {
  std::array<char, FLEN_VALUE> name{};
  int status = 0;
  int width = 0;
  fits_get_col_display_width(file->file, 1, &width, &status);
  if (width >= FLEN_VALUE) status = BAD_TFORM;
  char* text = name.data();
  fits_read_col(file->file, TSTRING, 1, row, 1, 1, nullptr, static_cast<void*>(&text), nullptr, &status);
  if (status == 0) return name.data();
  fits_clear_errmsg();
  throw std::runtime_error(fmt::format("{}: cannot read its engines' names (CFITSIO status {})", file_name, status));
}

/// A row per noise and engine, and the noises.
std::pair<std::vector<NamedScore>, std::vector<double>> ReadRows(const Handle& table, const std::string& file_name) {
  const auto noises = quen::common::Fits::ReadColumnOrThrow<double>(table, "noise");
  std::vector<NamedScore> rows(noises.size());
  for (std::size_t row = 0; row < rows.size(); ++row)
    rows[row].engine = ReadName(table, file_name, static_cast<long>(row) + 1);
  for (const Column& column : kColumns) {
    const auto values = quen::common::Fits::ReadColumnOrThrow<double>(table, column.name);
    for (std::size_t row = 0; row < rows.size(); ++row) column.value(rows[row].score) = values[row];
  }
  return {std::move(rows), noises};
}

}  // namespace

std::string ScoreFile(const ErrorCurves& curves, const quen::centroiders::ScoreOptions& options) {
  MemoryFits fits;
  std::vector<std::pair<std::string, std::string>> columns = {{"engine", fmt::format("{}A", FLEN_VALUE - 1)},
                                                              {"noise", "D"}};
  for (const Column& column : kColumns) columns.emplace_back(column.name, "D");
  const Handle& file = fits.AddTable("scores", columns);
  int row = 1;
  for (std::size_t k = 0; k < curves.noises.size(); ++k) {
    for (NamedScore named : curves.scores[k]) {
      WriteName(file, row, named.engine);
      quen::common::Fits::WriteColumnPriv(file, &curves.noises[k], 1, TDOUBLE, 2, row);
      for (std::size_t c = 0; c < kColumns.size(); ++c) {
        quen::common::Fits::WriteColumnPriv(file, &kColumns.at(c).value(named.score), 1, TDOUBLE,
                                            kFirstNumber + static_cast<int>(c), row);
      }
      ++row;
    }
  }
  WriteKey(file, "RANGE", options.range, "[pix] displacements are within this");
  WriteKey(file, "FRAMES", static_cast<long>(options.frames), "per noise");
  WriteKey(file, "SEED", static_cast<long>(options.seed), "of displacements and noise");
  WriteCreator(file, "score");
  return fits.Bytes();
}

ErrorCurves ReadScores(const InputFile& file) {
  const Handle table = OpenFits(file, "scores");
  const auto [rows, noises] = Reading(file, [&] { return ReadRows(table, file.Name()); });
  ErrorCurves curves;
  curves.range = NumberKey(file, table, "RANGE", 0.0);
  for (std::size_t row = 0; row < rows.size(); ++row) {
    if (row == 0 || noises[row] != noises[row - 1]) {
      curves.noises.push_back(noises[row]);
      curves.scores.emplace_back();
    }
    curves.scores.back().push_back(rows[row]);
  }
  const auto has_all = [&](const std::vector<NamedScore>& scores) { return scores.size() == curves.scores[0].size(); };
  if (curves.noises.size() < 2 || !std::ranges::is_sorted(curves.noises) || !(curves.noises[0] > 0.0) ||
      !std::ranges::all_of(curves.scores, has_all)) {
    throw std::runtime_error(file.Name() +
                             ": expected the same engines at two levels of noise or more, least noise first");
  }
  return curves;
}

}  // namespace quen::workbench
