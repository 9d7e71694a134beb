#pragma once

#include "tools/quen-shs/cli/command_line.hpp"

/// @file
/// The verbs, a file each: its arguments, the command line that fills them, and what it does. Each prints its result on
/// standard output, replaces the files that it is told to write, and throws on failure: std::runtime_error with one
/// sentence, or what the library throws.

namespace quen::tool {

void AddCalibrate(CommandLine& line);
void AddCheck(CommandLine& line);
void AddFrame(CommandLine& line);
void AddMeasure(CommandLine& line);
void AddView(CommandLine& line);
void AddScore(CommandLine& line);
void AddLoop(CommandLine& line);
void AddCampaign(CommandLine& line);
void AddServe(CommandLine& line);
void AddDetector(CommandLine& line);
void AddWatch(CommandLine& line);
void AddManual(CommandLine& line);
void AddCompletion(CommandLine& line);

/// Those of the program, in the order of its help: all of them (verbs/src/verbs.cpp), or those of scripts/demo
/// (demo.cpp).
void AddVerbs(CommandLine& line);

}  // namespace quen::tool
