#pragma once

#include <string>

#include "testing/process.hpp"

namespace quen::testing {

/// Runs the tool without a terminal.
inline Outcome QuenShs(const std::string& arguments) { return Run(QUEN_SHS " " + arguments); }

}  // namespace quen::testing
