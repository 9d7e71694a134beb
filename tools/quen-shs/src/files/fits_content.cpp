#include "tools/quen-shs/src/files/fits_content.hpp"

#include <array>
#include <fstream>
#include <stdexcept>
#include <string_view>

namespace quen_shs {

void RequireFits(const std::string& path) {
  if (!std::ifstream(path)) throw std::runtime_error(path + ": cannot be read");
  if (!IsFits(path)) throw std::runtime_error(path + ": expected a FITS file, found something else");
}

bool IsFits(const std::string& path) {
  std::array<char, 6> first{};
  std::ifstream(path, std::ios::binary).read(first.data(), first.size());
  return std::string_view(first.data(), first.size()) == "SIMPLE";
}

bool HasTable(const std::string& path, const char* name) {
  try {
    return quen::common::Fits::FitsFile(path, name)->hdu_type == BINARY_TBL;
  } catch (const std::runtime_error&) {
    fits_clear_errmsg();
    return false;
  }
}

void RequireTable(const std::string& path, const char* name) {
  RequireFits(path);
  if (!HasTable(path, name)) throw std::runtime_error(path + ": expected a table \"" + name + "\", found none");
}

double NumberKey(const quen::common::Fits::Handle& file, const char* key, double otherwise) {
  double value = otherwise;
  int status = 0;
  fits_read_key(file->file, TDOUBLE, key, &value, nullptr, &status);
  if (status != 0) fits_clear_errmsg();
  return status == 0 ? value : otherwise;
}

std::string TextKey(const quen::common::Fits::Handle& file, const char* key) {
  std::array<char, FLEN_VALUE> value{};
  int status = 0;
  fits_read_key(file->file, TSTRING, key, value.data(), nullptr, &status);
  if (status != 0) fits_clear_errmsg();
  return status == 0 ? value.data() : "";
}

}  // namespace quen_shs
