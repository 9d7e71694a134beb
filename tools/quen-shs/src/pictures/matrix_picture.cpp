#include "tools/quen-shs/src/pictures/matrix_picture.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "tools/quen-shs/src/pictures/canvas.hpp"
#include "tools/quen-shs/src/pictures/plot.hpp"

namespace quen_shs {
namespace {

/// Red, green and blue as Cairo packs them. A value from −1 to 1; others, NaN included, are black.
std::uint32_t PackedColour(double value) {
  if (!(std::abs(value) <= 1.0)) return 0;
  const double pale = 1.0 - std::abs(value);
  const auto byte = [](double share) { return static_cast<std::uint32_t>(std::lround(255.0 * share)); };
  const double red = value < 0.0 ? pale : 1.0 - 0.3 * value;
  const double blue = value < 0.0 ? 1.0 + 0.3 * value : pale;
  return byte(red) << 16U | byte(pale) << 8U | byte(blue);
}

double LargestMagnitude(const Matrix& matrix) {
  double largest = 0.0;
  for (const double element : matrix.reshaped()) {
    if (std::isfinite(element)) largest = std::max(largest, std::abs(element));
  }
  return largest > 0.0 ? largest : 1.0;
}

void PaintCells(cairo_t* cr, const Box& box, const Matrix& matrix, double largest) {
  const Surface image(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(matrix.cols()), static_cast<int>(matrix.rows())),
      &cairo_surface_destroy);
  cairo_surface_flush(image.get());
  unsigned char* const data = cairo_image_surface_get_data(image.get());
  const auto stride = static_cast<Eigen::Index>(cairo_image_surface_get_stride(image.get()));
  for (Eigen::Index row = 0; row < matrix.rows(); ++row) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): Cairo's rows are 32-bit words
    auto* const line = reinterpret_cast<std::uint32_t*>(data + row * stride);
    for (Eigen::Index column = 0; column < matrix.cols(); ++column) {
      line[column] = PackedColour(matrix(row, column) / largest);
    }
  }
  cairo_surface_mark_dirty(image.get());
  cairo_save(cr);
  cairo_translate(cr, box.left, box.top);
  cairo_scale(cr, box.width / static_cast<double>(matrix.cols()), box.height / static_cast<double>(matrix.rows()));
  cairo_set_source_surface(cr, image.get(), 0.0, 0.0);
  const bool is_enlarged = box.height > static_cast<double>(matrix.rows());
  cairo_pattern_set_filter(cairo_get_source(cr), is_enlarged ? CAIRO_FILTER_NEAREST : CAIRO_FILTER_GOOD);
  cairo_rectangle(cr, 0.0, 0.0, static_cast<double>(matrix.cols()), static_cast<double>(matrix.rows()));
  cairo_fill(cr);
  cairo_restore(cr);
}

}  // namespace

std::string DrawMatrix(const Matrix& matrix, const std::string& title) {
  // Long matrices lie or stand.
  const bool is_wide = matrix.cols() > matrix.rows();
  const Box box = {80.0, kTop, is_wide ? 1040.0 : 640.0, is_wide ? 420.0 : 800.0};
  const Canvas canvas(static_cast<int>(box.left + box.width + 40.0), static_cast<int>(box.top + box.height + 60.0));
  cairo_t* const cr = canvas.Cairo();
  const double largest = LargestMagnitude(matrix);
  Scale rows = LinearScale(static_cast<double>(matrix.rows()));
  std::swap(rows.first, rows.last);  // row 0 is at the top
  PaintCells(cr, box, matrix, largest);
  Plot(cr, box, LinearScale(static_cast<double>(matrix.cols())), rows).DrawFrame(title);
  Write(cr, box.left, box.top + box.height + 46.0,
        "blue " + Short(-largest) + ", white 0, red " + Short(largest) + "; black is not a number");
  return canvas.Png();
}

}  // namespace quen_shs
