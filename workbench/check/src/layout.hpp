#pragma once

#include <string>
#include <vector>

#include "workbench/check/src/lattice.hpp"
#include "workbench/sensor/matrices.hpp"

/// @file
/// How the slopes in a matrix may be laid out, other than they should be.

namespace quen::workbench {

/// Slope vectors as they stand in a matrix, one per column: 1214 × any number.
using Fields = Eigen::MatrixXd;

/// What a matrix's layout is. The right one, which this is as it is made: all y slopes, then all x slopes, in the order
/// of the used sub-apertures.
struct Layout {
  bool is_transposed = false;   ///< in memory: the axes are right, and the elements in the order of the other shape
  bool is_interleaved = false;  ///< pairs in place of blocks
  bool is_x_first = false;      ///< of the blocks, or in each pair
  std::size_t order = 0;        ///< of the list, among ListOrders
  bool is_x_flipped = false;
  bool is_y_flipped = false;
  double x_unit = 1.0;  ///< the x slopes are so many times too large against the y slopes

  bool operator==(const Layout&) const = default;

  /// How many mistakes someone has made to get there.
  [[nodiscard]] int Mistakes() const;
};

/// Its mistakes, each as a stable word, what is so, and what to do.
struct LayoutMistake {
  std::string word;
  std::string text;
  std::string advice;
};
std::vector<LayoutMistake> MistakesOf(const Layout& layout, const std::vector<ListOrder>& orders);

/// A matrix's slope vectors, either as it stands or as it would be had it been transposed in memory.
Fields M2sFields(const Matrix& m2s, bool is_transposed);
Fields CmFields(const Matrix& cm, bool is_transposed);

/// The same slope vectors in the right layout. The matrix's elements are in their places already.
Fields PutRight(const Fields& fields, const Layout& layout, const std::vector<ListOrder>& orders);

}  // namespace quen::workbench
