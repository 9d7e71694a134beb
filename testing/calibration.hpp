#pragma once

#include <string>
#include <vector>

#include "basesim/base_simulator.hpp"
#include "testing/environment.hpp"
#include "testing/fits_files.hpp"

/// @file
/// A small calibration for tests, in memory first so that a test can damage any part of it before it is written.

namespace quen::testing {

struct Image {
  int bitpix;
  std::vector<long> dims;
  std::vector<double> values;
};

/// A table of equally long columns.
struct Table {
  std::string name;
  std::vector<ColumnData> columns;

  std::vector<double>& operator[](const std::string& column);
  void Resize(std::size_t rows);
  void Remove(const std::string& column);
};

/// Good as it is made: 33 × 33 regions of 24 × 24 pixels from column 24, row 12, row by row, references in their
/// middle, the first 607 used; every matrix element different from every other.
struct Calibration {
  Calibration();

  Image m2s;
  Image cm;
  Table rois;
  Table rois_used;

  /// Writes the three files under `folder`/data.
  void Write(const std::string& folder) const;
};

/// A folder with a calibration, current while the object lives, with CFGPATH unset and INTROOT empty.
class CalibrationFolder {
 public:
  explicit CalibrationFolder(const Calibration& calibration = {}) { calibration.Write(folder_.Path()); }

  [[nodiscard]] std::string operator/(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] std::string Path() const { return folder_.Path(); }

 private:
  TempDir folder_;
  ScopedVariable cfgpath_{"CFGPATH", std::nullopt};
  ScopedVariable introot_{"INTROOT", ""};
  ScopedCurrentDirectory current_{folder_.Path()};
};

}  // namespace quen::testing
