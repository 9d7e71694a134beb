#pragma once

#include <functional>
#include <string>

#include "tools/quen-shs/cli/argument.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "workbench/live/durations.hpp"
#include "workbench/live/follower.hpp"

/// @file
/// What verbs on streams have in common.

namespace quen::tool {

/// The name of a stream.
Argument StreamName(const std::string& name, const std::string& what, std::string& variable);

/// Median, 99 % and worst, in milliseconds; null for scripts, and no line, where there are none.
/// @param what  they are, in words
void AddTimes(Report& report, const std::string& key, const workbench::Durations& durations, const std::string& what);

/// A sentence on what became of a stream: it was made anew, or is gone.
std::string EventInWords(workbench::StreamEvent event, const std::string& stream);

/// Does a job that goes on until it is interrupted, or fails, and prints its result in any case; then passes on what
/// ended it.
void PrintEvenIfItFails(const std::function<void()>& job, const std::function<void()>& print);

}  // namespace quen::tool
