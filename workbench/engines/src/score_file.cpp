#include "workbench/engines/score_file.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "workbench/fits/content.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/table.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

struct ScoreRow {
  std::string engine;
  double place = 0.0;
  double least_rms = 0.0;
  quen::centroiders::Score score = {};
};

constexpr std::array<Column<ScoreRow>, 14> kScoreColumns = {{
    {"engine", "", "", &ScoreRow::engine},
    {"bias_x", "", "", [](ScoreRow& row) -> double& { return row.score.x.bias; }},
    {"bias_y", "", "", [](ScoreRow& row) -> double& { return row.score.y.bias; }},
    {"rms_x", "", "", [](ScoreRow& row) -> double& { return row.score.x.rms; }},
    {"rms_y", "", "", [](ScoreRow& row) -> double& { return row.score.y.rms; }},
    {"gain_x", "", "", [](ScoreRow& row) -> double& { return row.score.x.gain; }},
    {"gain_y", "", "", [](ScoreRow& row) -> double& { return row.score.y.gain; }},
    {"offset_x", "", "", [](ScoreRow& row) -> double& { return row.score.x.offset; }},
    {"offset_y", "", "", [](ScoreRow& row) -> double& { return row.score.y.offset; }},
    {"worst", "", "", [](ScoreRow& row) -> double& { return row.score.worst; }},
    {"flux_bias", "", "", [](ScoreRow& row) -> double& { return row.score.flux_bias; }},
    {"flux_rms", "", "", [](ScoreRow& row) -> double& { return row.score.flux_rms; }},
    {"failed", "", "", [](ScoreRow& row) -> double& { return row.score.failed; }},
    {"microseconds", "", "", [](ScoreRow& row) -> double& { return row.score.microseconds; }},
}};

/// The columns above, and that of the places, after the engine; with a detector, the least error too.
std::vector<Column<ScoreRow>> ColumnsFor(Abscissa abscissa) {
  std::vector<Column<ScoreRow>> columns(kScoreColumns.begin(), kScoreColumns.end());
  if (abscissa == Abscissa::kNoise) {
    columns.insert(columns.begin() + 1, {"noise", "", "", &ScoreRow::place});
  } else {
    columns.insert(columns.begin() + 1, {{"photons", "electron", "of a whole spot", &ScoreRow::place},
                                         {"least_rms", "pixel", "", &ScoreRow::least_rms}});
  }
  return columns;
}

}  // namespace

std::string ScoreFile(const ErrorCurves& curves, const ScoreConditions& conditions) {
  std::vector<ScoreRow> rows;
  for (std::size_t k = 0; k < curves.places.size(); ++k) {
    for (const auto& [engine, score] : curves.scores[k]) {
      rows.push_back({engine, curves.places[k], curves.least_rms[k], score});
    }
  }
  const quen::centroiders::ScoreOptions& options = conditions.options;
  MemoryFits fits;
  const std::vector<Column<ScoreRow>> columns = ColumnsFor(curves.abscissa);
  const Handle& table = AppendRows<ScoreRow>(fits, kScoreTable, columns, std::move(rows));
  WriteKey(table, "RANGE", options.range, "[pix] displacements are within this");
  WriteKey(table, "FRAMES", static_cast<long>(options.frames), "per noise, or light");
  WriteKey(table, "SEED", static_cast<long>(options.seed), "of displacements and noise");
  if (conditions.detector) WriteDetectorKeys(table, *conditions.detector);
  WriteCreator(table, "score");
  return fits.Bytes();
}

ErrorCurves ReadScores(const InputFile& file) {
  ErrorCurves curves;
  const Handle table = OpenFits(file, kScoreTable);
  curves.range = NumberKey(file, table, "RANGE", 0.0);
  curves.abscissa = TextKey(file, table, "TTYPE2") == "photons" ? Abscissa::kLight : Abscissa::kNoise;
  const std::vector<Column<ScoreRow>> columns = ColumnsFor(curves.abscissa);
  for (const ScoreRow& row : ReadRows<ScoreRow>(file, kScoreTable, columns)) {
    if (curves.places.empty() || row.place != curves.places.back()) {
      curves.places.push_back(row.place);
      curves.least_rms.push_back(curves.abscissa == Abscissa::kLight ? row.least_rms
                                                                     : quen::centroiders::ErrorBound(row.place));
      curves.scores.emplace_back();
    }
    curves.scores.back().push_back({row.engine, row.score});
  }
  const auto has_all = [&](const std::vector<NamedScore>& scores) { return scores.size() == curves.scores[0].size(); };
  if (curves.places.size() < 2 || !std::ranges::is_sorted(curves.places) || !(curves.places[0] > 0.0) ||
      !std::ranges::all_of(curves.scores, has_all)) {
    throw std::runtime_error(
        file.Name() + ": expected the same engines at two levels of noise or light or more, the least one first");
  }
  return curves;
}

}  // namespace quen::workbench
