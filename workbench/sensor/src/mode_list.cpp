#include "workbench/sensor/mode_list.hpp"

#include <fmt/format.h>

#include <sstream>
#include <stdexcept>
#include <vector>

#include "workbench/fits/numbers.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {

Eigen::VectorXd ParseModes(const std::string& text) {
  Eigen::VectorXd modes = Eigen::VectorXd::Zero(kNumModes);
  std::vector<bool> is_given(kNumModes, false);
  std::istringstream stream(text);
  for (std::string item; std::getline(stream, item, ',');) {
    const std::size_t equals = item.find('=');
    const auto mode = ParseWhole(item.substr(0, equals));
    const auto value = equals == std::string::npos ? std::nullopt : ParseNumber(item.substr(equals + 1));
    if (!mode || !value) {
      throw std::invalid_argument(fmt::format("expected MODE=RADIANS, found \"{}\"", item));
    }
    if (*mode < 0 || *mode >= static_cast<long>(kNumModes)) {
      throw std::invalid_argument(fmt::format("expected a mode from 0 to {}, found {}", kNumModes - 1, *mode));
    }
    const auto index = static_cast<std::size_t>(*mode);
    if (is_given[index]) throw std::invalid_argument(fmt::format("expected mode {} once, found it twice", *mode));
    is_given[index] = true;
    modes(*mode) = *value;
  }
  return modes;
}

}  // namespace quen::workbench
