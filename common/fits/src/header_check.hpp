#pragma once

#include <string>

namespace quen::common::Fits {

/// Looks through the headers of a file before CFITSIO opens it, for what CFITSIO takes without a check and then writes
/// beyond a buffer, divides by zero or never ends: a value longer than a text can be, and sizes that no file can have.
/// Sizes that this file does not have are left to the reading; a file to be written to may lack little of them.
///
/// @param name  what CFITSIO is to open, its extended syntax included. Only plain FITS files are looked at: for no such
///              file, a compressed file, a network address the answer is 0.
/// @param mode  READONLY or READWRITE
/// @return      0, or a CFITSIO status, with messages on CFITSIO's stack
int CheckHeaders(const std::string& name, int mode);

}  // namespace quen::common::Fits
