#pragma once

#include <string>

#include "workbench/engines/scoring.hpp"
#include "workbench/fits/input_file.hpp"

namespace quen::workbench {

/// A FITS file with a binary table "scores", a row per noise and engine, which has the two and what a Score holds.
/// Displacements are in pixels.
std::string ScoreFile(const ErrorCurves& curves, const quen::centroiders::ScoreOptions& options);

/// Reads what ScoreFile has made.
/// @throws std::runtime_error  the file cannot be read, or is not like that
ErrorCurves ReadScores(const InputFile& file);

}  // namespace quen::workbench
