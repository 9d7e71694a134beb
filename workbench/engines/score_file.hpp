#pragma once

#include <string>

#include "workbench/engines/scoring.hpp"
#include "workbench/fits/input_file.hpp"

namespace quen::workbench {

inline constexpr const char* kScoreTable = "scores";

/// A FITS file with a binary table "scores". A row holds the score of one engine at one noise, or light, and both of
/// these. Displacements are in pixels.
std::string ScoreFile(const ErrorCurves& curves, const ScoreConditions& conditions);

/// Reads what ScoreFile has made.
/// @throws std::runtime_error  the file cannot be read, or is not like that
ErrorCurves ReadScores(const InputFile& file);

}  // namespace quen::workbench
