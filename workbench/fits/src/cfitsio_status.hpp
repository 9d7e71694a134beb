#pragma once

#include <string>

namespace quen::workbench {

/// @param failure  what could not be done, in words
/// @throws std::runtime_error  `status` is not 0: the failure, with CFITSIO's number for it. Its messages are cleared.
void RequireSuccess(int status, const std::string& failure);

}  // namespace quen::workbench
