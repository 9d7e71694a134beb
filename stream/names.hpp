#pragma once

#include <string>

#include "defs/export.hpp"

/// @file
/// Where streams are.

namespace quen::stream {

/// The folder of all streams: the one that the environment variable MILK_SHM_DIR names, else /milk/shm, else /tmp.
/// One that cannot be opened is passed over; of one that the variable names the log is told. Any thread; allocates.
QUEN_EXPORT std::string Folder();

/// The file of a stream: NAME.im.shm in that folder.
/// @throws std::invalid_argument  a name that is empty, longer than kLongestName, or has a slash or a zero byte in it;
///                                a path longer than kLongestPath
QUEN_EXPORT std::string PathOf(const std::string& name);

}  // namespace quen::stream
