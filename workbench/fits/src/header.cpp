#include "workbench/fits/header.hpp"

#include <array>
#include <string_view>

#include "workbench/fits/content.hpp"
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

void CopyKeywords(const InputFile& from, const quen::common::Fits::Handle& to) {
  const quen::common::Fits::Handle source = OpenFits(from, std::nullopt);
  int status = 0;
  int count = 0;
  fits_get_hdrspace(source->file, &count, nullptr, &status);
  for (int k = 1; k <= count && status == 0; ++k) {
    std::array<char, FLEN_CARD> card{};
    fits_read_record(source->file, k, card.data(), &status);
    const int kind = fits_get_keyclass(card.data());
    const bool is_creator = std::string_view(card.data()).starts_with("CREATOR ");
    if (kind == TYP_UNIT_KEY || (kind >= TYP_REFSYS_KEY && !is_creator))
      fits_write_record(to->file, card.data(), &status);
  }
  RequireSuccess(status, from.Name() + ": its keywords cannot be copied");
}

}  // namespace quen::workbench
