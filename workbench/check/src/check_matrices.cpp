#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "workbench/check/check.hpp"
#include "workbench/check/src/layout.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

using quen::shssim::kNumRoisUsed;

// --- Values

Finding CheckFinite(const std::string& name, const Matrix& matrix, const char* row_name, const char* column_name) {
  for (Eigen::Index row = 0; row < matrix.rows(); ++row) {
    for (Eigen::Index column = 0; column < matrix.cols(); ++column) {
      if (std::isfinite(matrix(row, column))) continue;
      return {
          Verdict::kWrong, name + " values",
          fmt::format("{} {}, {} {} is {} (counted from 0)", row_name, row, column_name, column, matrix(row, column))};
    }
  }
  return {Verdict::kGood, name + " values",
          fmt::format("finite, largest magnitude {:.3g}", matrix.cwiseAbs().maxCoeff())};
}

// --- Layout of each matrix by itself

struct Suspect {
  std::string name;
  double curl;
};

/// What to say of a matrix whose curl vanishes for this layout and not for the right one.
std::string Name(Layout layout, bool is_listed_by_rows) {
  switch (layout) {
    case Layout::kExchanged:
      return "its x and y blocks are exchanged: the y block must come first";
    case Layout::kFlipped:
      return "the sign of its x block or of its y block is flipped: displacements count toward higher columns and rows";
    case Layout::kTurned:
      return "its x and y blocks are exchanged and the sign of one is flipped: the slopes are turned by a right angle";
    case Layout::kGridTurned:
      return "rows and columns of the grid are exchanged in shs_rois.fits: it lists the sub-apertures column by "
             "column, or its x and y columns are exchanged";
    case Layout::kOtherOrder:
      return fmt::format(
          "rows and columns of the grid are exchanged: its slopes go {0} by {0}, the sub-apertures {1} by {1}",
          is_listed_by_rows ? "column" : "row", is_listed_by_rows ? "row" : "column");
    case Layout::kRight:
      break;
  }
  return {};
}

/// @param fields      a mode's slopes per column
/// @param transposed  the same if the matrix had been transposed in memory
Finding CheckLayout(const std::string& name, const Matrix& fields, const Matrix& transposed, const Grid& grid,
                    const std::vector<std::size_t>& used) {
  constexpr double kClear = 0.25;  // times less curl: no accident
  constexpr double kSmooth = 0.2;  // of slopes without order
  const std::string subject = name + " layout";
  const double right = Curl(fields, Layout::kRight, grid, used);
  std::vector<Suspect> suspects = {
      {"it is transposed in memory: its axes are right, and its elements in the order of another shape",
       Curl(transposed, Layout::kRight, grid, used)}};
  // Exchanged blocks and an exchanged grid mirror each other and have the same curl; which it is tells the list.
  const Layout mirrored = grid.IsListedByRows() ? Layout::kExchanged : Layout::kGridTurned;
  for (const Layout layout : {mirrored, Layout::kFlipped, Layout::kTurned, Layout::kOtherOrder}) {
    suspects.push_back({Name(layout, grid.IsListedByRows()), Curl(fields, layout, grid, used)});
  }
  const Suspect best = std::ranges::min(suspects, {}, &Suspect::curl);
  if (best.curl < kClear * right) {
    return {Verdict::kWrong, subject, fmt::format("{} (curl {:.2g} as it is, {:.2g} so)", best.name, right, best.curl)};
  }
  if (right > kSmooth) {
    return {Verdict::kDoubtful, subject,
            fmt::format("its slopes are those of no smooth wavefront, in no layout (curl {:.2g}; 1 is without order)",
                        right)};
  }
  return {Verdict::kGood, subject, fmt::format("slopes without curl ({:.2g}; 1 is without order)", right)};
}

// --- The control matrix against the modes-to-slopes matrix

struct Deviation {
  double size;  ///< NaN counts as infinite
  Eigen::Index row;
  Eigen::Index column;
};

/// The element of CM · M2S that is farthest from the identity's.
Deviation FromIdentity(const Matrix& product) {
  Deviation worst = {-1.0, 0, 0};
  for (Eigen::Index row = 0; row < product.rows(); ++row) {
    for (Eigen::Index column = 0; column < product.cols(); ++column) {
      const double off = std::abs(product(row, column) - (row == column ? 1.0 : 0.0));
      const double size = std::isnan(off) ? std::numeric_limits<double>::infinity() : off;
      if (size > worst.size) worst = {size, row, column};
    }
  }
  return worst;
}

struct Variant {
  const char* name;
  Matrix cm;
};

/// Control matrices as mistakes make them.
std::vector<Variant> Variants(const Matrix& cm) {
  const Eigen::Index half = cm.cols() / 2;
  Matrix exchanged(cm.rows(), cm.cols());
  exchanged << cm.rightCols(half), cm.leftCols(half);
  Matrix flipped = cm;
  flipped.rightCols(half) = -cm.rightCols(half);
  const Matrix transposed = Eigen::Map<const Matrix>(cm.data(), cm.cols(), cm.rows()).transpose();
  return {{"the sign of one of the two is flipped", -cm},
          {"x and y blocks are exchanged in one of the two", exchanged},
          {"the sign of the x block is flipped in one of the two", flipped},
          {"the sign of the y block is flipped in one of the two", -flipped},
          {"the control matrix is transposed in memory", transposed}};
}

double ConditionNumber(const Matrix& matrix) {
  // Not by Eigen's faster BDCSVD, which divides by zero where singular values coincide.
  const Eigen::VectorXd values = Eigen::JacobiSVD<Eigen::MatrixXd>(matrix).singularValues();
  const double least = values(values.size() - 1);
  return least > 0.0 ? values(0) / least : std::numeric_limits<double>::infinity();
}

Finding CheckInverse(const Matrix& m2s, const Matrix& cm) {
  constexpr const char* kSubject = "CM * M2S";
  constexpr double kClear = 0.1;  // of the deviation is left: no accident
  constexpr double kGoodEnough = 0.01;
  const Deviation worst = FromIdentity(cm * m2s);
  const std::string text = fmt::format("identity to {:.2g} (element {}, {}); condition number of M2S {:.3g}",
                                       worst.size, worst.row, worst.column, ConditionNumber(m2s));
  if (worst.size <= kGoodEnough) return {Verdict::kGood, kSubject, text};
  for (const auto& [name, variant] : Variants(cm)) {
    if (FromIdentity(variant * m2s).size < kClear * worst.size) {
      return {Verdict::kWrong, kSubject, fmt::format("{}; {}", text, name)};
    }
  }
  return {worst.size < 1.0 ? Verdict::kDoubtful : Verdict::kWrong, kSubject,
          text + "; the two are not from the same modes, or the control matrix filters some"};
}

}  // namespace

Findings CheckMatrices(const quen::shssim::ShsSimulator& simulator) {
  const auto m2s = M2sOf(simulator);
  const auto cm = CmOf(simulator);
  Findings findings = {CheckFinite("M2S", m2s, "slope", "mode"), CheckFinite("CM", cm, "mode", "slope")};
  if (std::ranges::any_of(findings, [](const Finding& finding) { return finding.verdict != Verdict::kGood; })) {
    return findings;
  }
  findings.push_back(CheckInverse(m2s, cm));
  const std::vector<std::size_t> used = UsedIndices(simulator.RoisUsed());
  const std::optional<Grid> grid = Grid::Find(simulator.Rois());
  if (!grid || used.size() != kNumRoisUsed) {
    findings.push_back({Verdict::kDoubtful, "layout",
                        "cannot be checked: the references of the used sub-apertures are not on a grid of 33 x 33"});
    return findings;
  }
  const Eigen::Map<const Matrix> m2s_as_cm(m2s.data(), m2s.cols(), m2s.rows());
  const Eigen::Map<const Matrix> cm_as_m2s(cm.data(), cm.cols(), cm.rows());
  findings.push_back(CheckLayout("M2S", m2s, m2s_as_cm.transpose(), *grid, used));
  findings.push_back(CheckLayout("CM", cm.transpose(), cm_as_m2s, *grid, used));
  return findings;
}

}  // namespace quen::workbench
