#pragma once

#include <log4cplus/logger.h>

#include "defs/export.hpp"

/// @file
/// The logger that the library writes to. In the product this is the logging facility's; stand-alone, the library
/// brings this stand-in. A host that defines quen::common::GetLogger() itself replaces it when the process is loaded.

namespace quen::common {

/// The logger of the library, "quen". Appenders, layout and threshold are the host's to configure: records go to the
/// logger's own appenders and on to the root's. Without any, records vanish silently.
///
/// May be called from any thread. Allocates on its first call.
QUEN_EXPORT log4cplus::Logger GetLogger();

}  // namespace quen::common
