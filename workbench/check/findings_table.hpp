#pragma once

#include <string>

#include "workbench/check/finding.hpp"

namespace quen::workbench {

/// A table for people: each finding, below it what to do, and how many there are of a folder's calibration.
std::string FindingsTable(const Findings& findings, const std::string& folder);

}  // namespace quen::workbench
