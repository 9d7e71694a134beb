#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quen::common::Fits {

/// What was found of the HDUs that CFITSIO is about to go through.
struct Way {
  int status = 0;           ///< a CFITSIO status if CFITSIO would write beyond a buffer, or never end; else 0
  std::string reason;       ///< for that status
  bool can_be_left = true;  ///< whether a file opened for writing can be gone through (data_unit.hpp)
  bool can_append = true;   ///< whether an HDU can be appended: the file grows by no more than 100 MB before it
};

/// Looks through the headers of a file before CFITSIO does, for the few things at which it would write beyond a buffer
/// or never end: a column's name longer than its room, and data units that lead back to where they began. Everything
/// else, right or wrong, is CFITSIO's to judge, and so is a file that cannot be read. Only plain FITS files are looked
/// at, no compressed ones and no network addresses.
///
/// @param name  what CFITSIO is to open, its extended syntax included; the way goes to the HDU that it selects
Way WayTo(const std::string& name);

/// The way to the binary table of this name, or to the end of the file.
Way WayToTable(const std::string& name, const std::string& extension);

/// The way to the end of the file, from the header at `start` on.
Way WayFrom(const std::string& name, std::int64_t start);

/// Whether CFITSIO, reading a value as a whole number of 64 bits, would complain and overrun the room of its complaint:
/// the value is none and long, or too large for an unsigned number.
bool OverrunsComplaint(std::string_view value, bool is_unsigned);

/// Puts the reason on CFITSIO's message stack.
/// @return  the status
int Refuse(const Way& way);

}  // namespace quen::common::Fits
