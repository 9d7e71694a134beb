#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace quen::workbench {

/// Whether a file that begins so is compressed by gzip.
bool IsGzip(std::string_view beginning);

/// Unpacks a file that is compressed by gzip, piece by piece; all of its members, where it has several.
/// @param name  in messages
/// @param read  gives the file's bytes from a position on, none at its end
/// @param give  takes what is unpacked
/// @throws std::runtime_error  the file is damaged or cut short
void Gunzip(const std::string& name, const std::function<std::string(std::uint64_t position)>& read,
            const std::function<void(std::string_view piece)>& give);

/// Compresses bytes as gzip does; equal ones always to the same.
std::string Gzipped(std::string_view bytes);

}  // namespace quen::workbench
