#include "workbench/pictures/stream_picture.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "workbench/pictures/frame_picture.hpp"
#include "workbench/pictures/matrix_picture.hpp"

namespace quen::workbench {
namespace {

std::size_t RowsOf(const std::vector<std::uint32_t>& size) { return size.size() > 1 ? size[1] : 1; }

}  // namespace

void RequireDrawable(const std::vector<std::uint32_t>& size, const std::string& stream) {
  constexpr std::size_t kLargest = 8000;  // pixels along an axis
  if (size[0] <= kLargest && RowsOf(size) <= kLargest) return;
  throw std::runtime_error(
      fmt::format("stream {}: expected at most {} pixels along either axis for a picture, found "
                  "{} x {}",
                  stream, kLargest, size[0], RowsOf(size)));
}

std::string DrawStream(const std::vector<std::uint32_t>& size, const std::vector<double>& values,
                       const std::string& title) {
  constexpr std::size_t kFew = 64;
  const std::size_t columns = size[0];
  const std::size_t rows = RowsOf(size);
  const std::string full_title = size.size() == 3 ? title + ", the first plane" : title;
  if (std::min(columns, rows) < kFew) {
    return DrawMatrix(
        Eigen::Map<const Matrix>(values.data(), static_cast<Eigen::Index>(rows), static_cast<Eigen::Index>(columns)),
        full_title);
  }
  return DrawMap({values.begin(), values.begin() + static_cast<std::ptrdiff_t>(rows * columns)}, columns, full_title);
}

}  // namespace quen::workbench
