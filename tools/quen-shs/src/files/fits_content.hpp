#pragma once

#include <string>

#include "common/fits/fits.hpp"

/// @file
/// What a FITS file has, asked without a failure where it has it not.

namespace quen_shs {

/// Whether the file can be read and has a binary table of this name.
bool HasTable(const std::string& path, const char* name);

/// Whether a file begins as a FITS file does.
bool IsFits(const std::string& path);

/// A number of the header that the file stands on; `otherwise` without the keyword.
double NumberKey(const quen::common::Fits::Handle& file, const char* key, double otherwise);

/// Text of it; empty without the keyword.
std::string TextKey(const quen::common::Fits::Handle& file, const char* key);

}  // namespace quen_shs
