#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace quen::workbench {

/// Members in the order of the text.
using Document = nlohmann::ordered_json;

/// Reads TOML or, where the text begins as an object does, JSON with comments.
/// @param name  in messages
/// @throws std::runtime_error  it is neither, or too long, TOML earlier than JSON; a member is there twice, or is a
/// date
Document ParseDocument(const std::string& name, const std::string& text);

}  // namespace quen::workbench
