#include "workbench/sensor/matrix_file.hpp"

#include <fmt/format.h>

#include <stdexcept>

#include "workbench/fits/content.hpp"

namespace quen::workbench {

using quen::common::Fits::Handle;

void WriteMatrix(const Handle& image, const Matrix& matrix) {
  quen::common::Fits::WriteImgPriv(image, matrix.data(), static_cast<std::size_t>(matrix.size()), DOUBLE_IMG, TDOUBLE,
                                   {static_cast<std::size_t>(matrix.cols()), static_cast<std::size_t>(matrix.rows())});
}

Matrix ReadMatrix(const InputFile& file) {
  const Handle image = OpenFits(file, std::nullopt);
  return Reading(file, [&] {
    const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(image);
    if (axes.size() != 2 || bitpix != DOUBLE_IMG) {
      throw std::runtime_error(
          fmt::format("{}: expected a matrix, an image of two axes with BITPIX -64, found {} axes with BITPIX {}",
                      file.Name(), axes.size(), bitpix));
    }
    Matrix matrix(static_cast<Eigen::Index>(axes[1]), static_cast<Eigen::Index>(axes[0]));
    quen::common::Fits::ReadImgPriv(image, matrix.data(), static_cast<std::size_t>(matrix.size()), DOUBLE_IMG, TDOUBLE,
                                    std::nullopt);
    return matrix;
  });
}

}  // namespace quen::workbench
