#pragma once

#include <string>
#include <vector>

#include "defs/export.hpp"

/// @file
/// The search for data files. A name is looked for, first hit wins,
///
///  1. by the framework's lookup, pim::Helper::FindFile (the directories of CFGPATH),
///  2. as it stands (a relative name against the current directory),
///  3. in each of the caller's extra directories, in their order,
///  4. in $INTROOT/resource.
///
/// A candidate exists when something of its name does: a directory counts, a dangling link does not. Nothing is cached:
/// every call searches again and reads the environment again. No locks: the environment must not change meanwhile.

namespace quen::common::FileSystem {

/// Finds a data file.
///
/// @param name         file name, relative path or absolute path
/// @param directories  extra directories, may be empty
/// @return             absolute path of the file (nothing normalised, links not resolved); empty when there is none
/// @throws std::logic_error                   INTROOT is not set and steps 1 to 3 found nothing
/// @throws std::filesystem::filesystem_error  a candidate cannot be examined, say for lack of permission
///
/// Exceptions of the framework's lookup pass unchanged.
QUEN_EXPORT std::string FindFile(const std::string& name, const std::vector<std::string>& directories);

/// Finds a data file, or throws with the list of places searched.
///
/// Arguments, result and exceptions as FindFile, but instead of returning an empty path
/// @throws std::runtime_error  nothing found; the text lists the places: as given, CFGPATH, INTROOT, `directories`
QUEN_EXPORT std::string FindFileOrThrow(const std::string& name, const std::vector<std::string>& directories);

}  // namespace quen::common::FileSystem
