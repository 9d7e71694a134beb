#pragma once

#include <string>

#include "defs/export.hpp"

/// @file
/// The surrounding framework's resource lookup. In the product the framework provides it; stand-alone, the library
/// brings this stand-in. A host that defines pim::Helper::FindFile itself replaces it when the process is loaded.

namespace pim {

/// The lookup, of which this system uses one function.
class Helper {
 public:
  /// Looks `name` up along the configuration path: the directories of the environment variable CFGPATH, a
  /// colon-separated list, in their order. Empty entries are skipped, and so are directories that cannot be searched.
  ///
  /// @param name  file name or relative path such as "data/CM.fits"
  /// @return      the first existing directory/name, or the empty string when there is none
  ///
  /// The environment is read on every call; nothing is cached.
  QUEN_EXPORT static std::string FindFile(const std::string& name);
};

}  // namespace pim
