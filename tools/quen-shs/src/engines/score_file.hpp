#pragma once

#include <string>

#include "tools/quen-shs/src/engines/scoring.hpp"

namespace quen_shs {

/// Writes a binary table "scores", a row per noise and engine: both, and what a Score holds, displacements in pixels.
/// Replaces the file.
/// @throws std::runtime_error  the file cannot be written
void WriteScores(const std::string& path, const ErrorCurves& curves, const quen::centroiders::ScoreOptions& options);

/// Reads what WriteScores has written.
/// @throws std::runtime_error  the file cannot be read, or is not like that
ErrorCurves ReadScores(const std::string& path);

}  // namespace quen_shs
