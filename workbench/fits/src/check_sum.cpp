#include "workbench/fits/src/check_sum.hpp"

#include <fitsio.h>
#include <fmt/format.h>

#include <array>

namespace quen::workbench {
namespace {

std::string TextValue(const std::string& text) { return fmt::format("{:<20}", fmt::format("'{:<8}'", text)); }

}  // namespace

std::uint32_t AddWords(std::uint32_t sum, std::string_view bytes) {
  constexpr std::size_t kWord = 4;
  constexpr std::uint64_t kWordMask = 0xFFFFFFFFU;
  constexpr unsigned int kWordBits = 32;
  constexpr unsigned int kByteBits = 8;
  std::uint64_t total = sum;
  for (std::size_t at = 0; at < bytes.size(); at += kWord) {
    std::uint32_t word = 0;
    for (const char byte : bytes.substr(at, kWord)) word = (word << kByteBits) | static_cast<unsigned char>(byte);
    total += word;
  }
  while ((total >> kWordBits) != 0) total = (total & kWordMask) + (total >> kWordBits);
  return static_cast<std::uint32_t>(total);
}

void SetCard(std::string& header, std::string_view keyword, const std::string& value) {
  constexpr std::size_t kValue = 10;  // its first column
  constexpr std::size_t kWidth = 20;
  std::size_t at = 0;
  while (!header.substr(at, kValue).starts_with(keyword)) at += kFitsCard;
  header.replace(at + kValue, kWidth, value);
}

void SetCheckSum(std::string& header, std::uint32_t data_sum) {
  constexpr int kComplement = 1;
  // Of a sum that is none CFITSIO leaves the words with which it begins.
  SetCard(header, "DATASUM", TextValue(data_sum == 0 ? "         0" : std::to_string(data_sum)));
  // The checksum is the text that makes the sum over the unit minus zero; as long as it is sixteen zeros, the sum is
  // what it has to make up for.
  SetCard(header, "CHECKSUM", TextValue("0000000000000000"));
  std::array<char, FLEN_VALUE> text{};
  fits_encode_chksum(AddWords(data_sum, header), kComplement, text.data());
  SetCard(header, "CHECKSUM", TextValue(text.data()));
}

}  // namespace quen::workbench
