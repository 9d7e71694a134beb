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
  double noise = 0.0;
  quen::centroiders::Score score = {};
};

constexpr const char* kTable = "scores";
constexpr std::array<Column<ScoreRow>, 15> kScoreColumns = {{
    {"engine", "", "", &ScoreRow::engine},
    {"noise", "", "", &ScoreRow::noise},
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

}  // namespace

std::string ScoreFile(const ErrorCurves& curves, const quen::centroiders::ScoreOptions& options) {
  std::vector<ScoreRow> rows;
  for (std::size_t k = 0; k < curves.noises.size(); ++k) {
    for (const auto& [engine, score] : curves.scores[k]) rows.push_back({engine, curves.noises[k], score});
  }
  MemoryFits fits;
  const Handle& table = AppendRows<ScoreRow>(fits, kTable, kScoreColumns, std::move(rows));
  WriteKey(table, "RANGE", options.range, "[pix] displacements are within this");
  WriteKey(table, "FRAMES", static_cast<long>(options.frames), "per noise");
  WriteKey(table, "SEED", static_cast<long>(options.seed), "of displacements and noise");
  WriteCreator(table, "score");
  return fits.Bytes();
}

ErrorCurves ReadScores(const InputFile& file) {
  const std::vector<ScoreRow> rows = ReadRows<ScoreRow>(file, kTable, kScoreColumns);
  ErrorCurves curves;
  curves.range = NumberKey(file, OpenFits(file, kTable), "RANGE", 0.0);
  for (const ScoreRow& row : rows) {
    if (curves.noises.empty() || row.noise != curves.noises.back()) {
      curves.noises.push_back(row.noise);
      curves.scores.emplace_back();
    }
    curves.scores.back().push_back({row.engine, row.score});
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
