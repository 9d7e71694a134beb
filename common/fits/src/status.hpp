#pragma once

#include <string>

namespace quen::common::Fits {

/// The text of a CFITSIO status, empty for 0: its description, ", ", and every message queued in the process, oldest
/// first and without separators. Messages of earlier failures that nobody asked about are among them. Leaves the queue
/// empty.
std::string ReadStatus(int status);

}  // namespace quen::common::Fits
