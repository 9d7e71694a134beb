#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "tools/quen-shs/cli/command_line.hpp"

namespace quen::tool {

/// What is wrong with arguments, in one sentence: where, what was expected, what was found. CLI11's own sentences have
/// another form for each case.
/// @param app  after its parsing has failed with `error`
std::string WhatIsWrong(const CLI::App& app, const CLI::ParseError& error, const std::vector<Verb>& verbs);

/// @throws CLI::ValidationError  two arguments are given of which a verb takes one
void RequireOneOfAlternatives(const CLI::App& subcommand, const Verb& verb);

}  // namespace quen::tool
