#include "shssim/src/slope_file.hpp"

#include "common/fits/fits.hpp"
#include "shssim/truncation.hpp"

namespace quen::shssim {
namespace {

using common::Fits::CppToFits;
using common::Fits::FitsFileWrite;
using common::Fits::Handle;
using common::Fits::WriteColumnPriv;
using common::Fits::WriteTable;
using image_processing::Roi;

/// Writes one region, cell by cell. The reference point is recorded to whole pixels only.
void WriteRoi(const Handle& file, const Roi& roi, int row) {
  int column = 1;
  for (const std::uint16_t cell :
       {roi.x_low, roi.x_up, TruncateToPixel(roi.x_ref), roi.y_low, roi.y_up, TruncateToPixel(roi.y_ref)}) {
    WriteColumnPriv(file, &cell, 1, TSHORT, column++, row);
  }
}

void WriteRois(const std::string& path, const std::vector<Roi>& rois) {
  const char* const u16 = CppToFits<std::uint16_t>::format;
  const char* const f64 = CppToFits<double>::format;
  const Handle file = FitsFileWrite(path, false, "rois");
  WriteTable(file, {{"x_low", u16}, {"x_up", u16}, {"x_ref", f64}, {"y_low", u16}, {"y_up", u16}, {"y_ref", f64}});
  int row = 1;
  for (const Roi& roi : rois) WriteRoi(file, roi, row++);
}

void WriteRoisUsed(const std::string& path, const std::vector<std::uint8_t>& rois_used) {
  const Handle file = FitsFileWrite(path, false, "rois_use");
  WriteTable(file, {{"is_used", CppToFits<std::uint8_t>::format}});
  WriteColumnPriv(file, rois_used.data(), rois_used.size(), TBYTE, 1, 1);
}

void WriteSlopes(const std::string& path, const SlopeTables& tables) {
  const char* const f64 = CppToFits<double>::format;
  const Handle file = FitsFileWrite(path, false, "slopes");
  WriteTable(file, {{"flux", f64}, {"x", f64}, {"y", f64}});
  WriteColumnPriv(file, tables.flux.data(), tables.flux.size(), TDOUBLE, 1, 1);
  WriteColumnPriv(file, tables.x_slopes.data(), tables.x_slopes.size(), TDOUBLE, 2, 1);
  WriteColumnPriv(file, tables.y_slopes.data(), tables.y_slopes.size(), TDOUBLE, 3, 1);
}

}  // namespace

void WriteSlopeFile(const std::string& path, const SlopeTables& tables) {
  WriteRois(path, tables.rois);
  WriteRoisUsed(path, tables.rois_used);
  WriteSlopes(path, tables);
}

}  // namespace quen::shssim
