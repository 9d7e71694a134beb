#include "workbench/fits/header.hpp"

#include "workbench/fits/src/cfitsio_status.hpp"

namespace quen::workbench {
namespace {

void Check(int status, const std::string& key) { RequireSuccess(status, "cannot write the FITS keyword " + key); }

}  // namespace

void WriteKey(const quen::common::Fits::Handle& file, const std::string& key, const std::string& value,
              const std::string& comment) {
  int status = 0;
  fits_update_key_longstr(file->file, key.c_str(), value.c_str(), comment.c_str(), &status);
  Check(status, key);
}

void WriteKey(const quen::common::Fits::Handle& file, const std::string& key, double value,
              const std::string& comment) {
  constexpr int kDigits = -15;  // as many as needed, fifteen at most
  int status = 0;
  fits_update_key_dbl(file->file, key.c_str(), value, kDigits, comment.c_str(), &status);
  Check(status, key);
}

void WriteKey(const quen::common::Fits::Handle& file, const std::string& key, long value, const std::string& comment) {
  int status = 0;
  fits_update_key_lng(file->file, key.c_str(), value, comment.c_str(), &status);
  Check(status, key);
}

void WriteCreator(const quen::common::Fits::Handle& file, const std::string& command) {
  WriteKey(file, "CREATOR", "quen-shs " + command + " " QUEN_VERSION, "what made this file");
}

}  // namespace quen::workbench
