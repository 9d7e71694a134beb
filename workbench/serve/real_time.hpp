#pragma once

#include <string>

/// @file
/// What a thread that must not be late asks of the system.

namespace quen::workbench {

/// Gives the calling thread a real-time priority (SCHED_FIFO) and locks all memory of the process.
/// @param priority  1 to 99
/// @return  why that is not so, a sentence; empty if it is
std::string TakeRealTimePriority(int priority);

/// Lets the calling thread run on this processor alone.
/// @return  as above
std::string StayOnProcessor(int processor);

/// Has the calling thread woken up when it asks for it, not some tens of microseconds later to save energy.
void AskForExactWaking();

}  // namespace quen::workbench
