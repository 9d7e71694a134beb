#pragma once

#include <string>

#include "common/fits/fits.hpp"

/// @file
/// What a FITS file has, asked without a failure where it has it not.

namespace quen_shs {

/// @throws std::runtime_error  the file cannot be read, or does not begin as a FITS file does
void RequireFits(const std::string& path);

/// Whether a FITS file begins as one.
bool IsFits(const std::string& path);

/// Whether the file can be read and has a binary table of this name.
bool HasTable(const std::string& path, const char* name);

/// @throws std::runtime_error  it is no FITS file, or has no binary table of this name
void RequireTable(const std::string& path, const char* name);

/// A number of the header that the file stands on; `otherwise` without the keyword.
double NumberKey(const quen::common::Fits::Handle& file, const char* key, double otherwise);

/// Text of it; empty without the keyword.
std::string TextKey(const quen::common::Fits::Handle& file, const char* key);

}  // namespace quen_shs
