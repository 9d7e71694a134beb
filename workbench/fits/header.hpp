#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "common/fits/fits.hpp"
#include "workbench/fits/input_file.hpp"

namespace quen::workbench {

/// Writes keywords into the HDU that a file stands on.
/// @throws std::runtime_error  CFITSIO failure
void WriteKey(const quen::common::Fits::Handle& file, const std::string& key, const std::string& value,
              const std::string& comment);
void WriteKey(const quen::common::Fits::Handle& file, const std::string& key, double value, const std::string& comment);
void WriteKey(const quen::common::Fits::Handle& file, const std::string& key, long value, const std::string& comment);

/// Writes what made the file, for instance "quen-shs calibrate 0.1.0".
void WriteCreator(const quen::common::Fits::Handle& file, const std::string& command);

/// Copies cards from the header that one handle stands on to that of another, with those that go on with them.
/// @param file  that is read
/// @throws std::runtime_error  they cannot be read or written
void CopyCards(const InputFile& file, const quen::common::Fits::Handle& from, const quen::common::Fits::Handle& to,
               const std::function<bool(const std::string& card)>& is_wanted);

/// Whether a card has this keyword.
bool HasKeyword(std::string_view card, std::string_view keyword);

/// Copies the keywords of a file's primary image that say nothing of how its data are stored: units, comments, and what
/// programs have added, but not what made the file.
/// @throws std::runtime_error  they cannot be read or written
void CopyKeywords(const InputFile& from, const quen::common::Fits::Handle& to);

}  // namespace quen::workbench
