#include "workbench/fits/header.hpp"

#include <array>

#include "workbench/fits/content.hpp"
#include "workbench/fits/numbers.hpp"
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

bool HasKeyword(std::string_view card, std::string_view keyword) {
  constexpr std::size_t kKeyword = 8;
  return Trimmed(card.substr(0, kKeyword)) == keyword;
}

void CopyCards(const InputFile& file, const quen::common::Fits::Handle& from, const quen::common::Fits::Handle& to,
               const std::function<bool(const std::string& card)>& is_wanted) {
  int status = 0;
  int count = 0;
  bool is_copied = false;
  fits_get_hdrspace(from->file, &count, nullptr, &status);
  for (int k = 1; k <= count && status == 0; ++k) {
    std::array<char, FLEN_CARD> card{};
    fits_read_record(from->file, k, card.data(), &status);
    if (!HasKeyword(card.data(), "CONTINUE")) is_copied = is_wanted(card.data());
    if (is_copied) fits_write_record(to->file, card.data(), &status);
  }
  RequireSuccess(status, file.Name() + ": its keywords cannot be copied");
}

void CopyKeywords(const InputFile& from, const quen::common::Fits::Handle& to) {
  CopyCards(from, OpenFits(from, std::nullopt), to, [](std::string card) {
    const int kind = fits_get_keyclass(card.data());
    return kind == TYP_UNIT_KEY || (kind >= TYP_REFSYS_KEY && !HasKeyword(card, "CREATOR"));
  });
}

}  // namespace quen::workbench
