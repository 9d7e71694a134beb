#pragma once

#include <string>

#include "tools/quen-shs/src/engines/scoring.hpp"
#include "tools/quen-shs/src/files/input_file.hpp"

namespace quen_shs {

/// A FITS file with a binary table "scores", a row per noise and engine: both, and what a Score holds, displacements in
/// pixels.
std::string ScoreFile(const ErrorCurves& curves, const quen::centroiders::ScoreOptions& options);

/// Reads what ScoreFile has made.
/// @throws std::runtime_error  the file cannot be read, or is not like that
ErrorCurves ReadScores(const InputFile& file);

}  // namespace quen_shs
