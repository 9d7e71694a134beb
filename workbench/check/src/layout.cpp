#include "workbench/check/src/layout.hpp"

#include <fmt/format.h>

namespace quen::workbench {

int Layout::Mistakes() const {
  const bool is_negative = is_x_flipped && is_y_flipped;
  int count = is_negative ? 1 : static_cast<int>(is_x_flipped) + static_cast<int>(is_y_flipped);
  count += static_cast<int>(is_transposed) + static_cast<int>(is_interleaved || is_x_first);
  return count + static_cast<int>(order != 0) + static_cast<int>(x_unit != 1.0);
}

std::vector<LayoutMistake> MistakesOf(const Layout& layout, const std::vector<ListOrder>& orders) {
  std::vector<LayoutMistake> mistakes;
  if (layout.is_transposed) {
    mistakes.push_back({"transposed_in_memory",
                        "it is transposed in memory: its axes are right, and its elements in the order of another shape",
                        "transpose it before writing, and keep its axes"});
  }
  if (layout.is_interleaved) {
    const char* const pair = layout.is_x_first ? "(x, y)" : "(y, x)";
    mistakes.push_back({layout.is_x_first ? "interleaved_xy" : "interleaved_yx",
                        fmt::format("its slopes stand in pairs {} instead of in two blocks", pair),
                        "write all y slopes, then all x slopes"});
  } else if (layout.is_x_first) {
    mistakes.push_back({"exchanged", "its x and y blocks are exchanged: the y block must come first",
                        "write the y block first, then the x block"});
  }
  if (layout.order != 0) {
    mistakes.push_back({orders[layout.order].mistake,
                        fmt::format("its slopes go {}, the sub-apertures {}", orders[layout.order].words,
                                    orders.front().words),
                        "list the slopes in the order of the sub-apertures in shs_rois.fits"});
  }
  if (layout.is_x_flipped && layout.is_y_flipped) {
    mistakes.push_back({"negative", "its sign is flipped throughout", "multiply it by -1"});
  } else if (layout.is_x_flipped || layout.is_y_flipped) {
    const char* const axis = layout.is_x_flipped ? "x" : "y";
    mistakes.push_back({fmt::format("{}_flipped", axis),
                        fmt::format("the sign of its {} block is flipped: displacements count toward higher columns "
                                    "and rows",
                                    axis),
                        fmt::format("multiply its {} slopes by -1", axis)});
  }
  if (layout.x_unit != 1.0) {
    mistakes.push_back({"x_unit",
                        fmt::format("its x slopes are {:.3g} times too large against its y slopes", layout.x_unit),
                        fmt::format("divide its x slopes by {:.3g}", layout.x_unit)});
  }
  return mistakes;
}

Fields M2sFields(const Matrix& m2s, bool is_transposed) {
  if (!is_transposed) return m2s;
  return Eigen::Map<const Matrix>(m2s.data(), m2s.cols(), m2s.rows()).transpose();
}

Fields CmFields(const Matrix& cm, bool is_transposed) {
  if (!is_transposed) return cm.transpose();
  return Eigen::Map<const Matrix>(cm.data(), cm.cols(), cm.rows());
}

Fields PutRight(const Fields& fields, const Layout& layout, const std::vector<ListOrder>& orders) {
  const std::vector<std::size_t>& place = orders[layout.order].place;
  const Eigen::Index half = fields.rows() / 2;
  const Eigen::Index step = layout.is_interleaved ? 2 : 1;
  const Eigen::Index second = layout.is_interleaved ? 1 : half;
  const Eigen::Index y = layout.is_x_first ? second : 0;
  const Eigen::Index x = layout.is_x_first ? 0 : second;
  const double y_factor = layout.is_y_flipped ? -1.0 : 1.0;
  const double x_factor = (layout.is_x_flipped ? -1.0 : 1.0) / layout.x_unit;
  Fields right(fields.rows(), fields.cols());
  for (Eigen::Index k = 0; k < half; ++k) {
    const auto to = static_cast<Eigen::Index>(place[static_cast<std::size_t>(k)]);
    right.row(to) = y_factor * fields.row(y + step * k);
    right.row(half + to) = x_factor * fields.row(x + step * k);
  }
  return right;
}

}  // namespace quen::workbench
