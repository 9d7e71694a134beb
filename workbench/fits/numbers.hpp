#pragma once

#include <optional>
#include <string_view>

namespace quen::workbench {

/// The finite number that a text consists of, apart from blanks around it; std::nullopt for any other text.
std::optional<double> ParseNumber(std::string_view text);

/// The same for a whole number of magnitude 10⁹ at most.
std::optional<long> ParseWhole(std::string_view text);

/// Text without the blanks around it.
std::string_view Trimmed(std::string_view text);

}  // namespace quen::workbench
