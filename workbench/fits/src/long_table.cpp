#include "workbench/fits/long_table.hpp"

#include <fitsio.h>
#include <fmt/format.h>

#include <array>
#include <utility>

namespace quen::workbench {
namespace {

constexpr std::size_t kBlock = 2880;
constexpr std::size_t kCard = 80;
constexpr std::size_t kPiece = 1024 * kBlock;  // of rows that are handed on together

/// Adds big-endian words of 32 bits in ones' complement, as the FITS standard's checksums do.
/// @param bytes  a whole number of words
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

/// Sets the value of a card that is there, in the columns of a fixed format.
void SetCard(std::string& header, std::string_view keyword, const std::string& value) {
  constexpr std::size_t kValue = 10;  // its first column
  constexpr std::size_t kWidth = 20;
  std::size_t at = 0;
  while (!header.substr(at, kValue).starts_with(keyword)) at += kCard;
  header.replace(at + kValue, kWidth, value);
}

std::string TextValue(const std::string& text) { return fmt::format("{:<20}", fmt::format("'{:<8}'", text)); }

/// The checksum of a unit is the text that makes the sum over it minus zero; as long as it is sixteen zeros, the sum is
/// what it has to make up for.
void SetCheckSum(std::string& header, std::uint32_t data_sum) {
  constexpr int kComplement = 1;
  // Of a sum that is none CFITSIO leaves the words with which it begins.
  SetCard(header, "DATASUM", TextValue(data_sum == 0 ? "         0" : std::to_string(data_sum)));
  SetCard(header, "CHECKSUM", TextValue("0000000000000000"));
  std::array<char, FLEN_VALUE> text{};
  fits_encode_chksum(AddWords(data_sum, header), kComplement, text.data());
  SetCard(header, "CHECKSUM", TextValue(text.data()));
}

}  // namespace

LongTable::LongTable(std::string empty, ByteSink sink) : header_(std::move(empty)), sink_(std::move(sink)) {}

void LongTable::Add(std::string_view row) {
  waiting_ += row;
  ++rows_;
  if (waiting_.size() >= kPiece) HandOn(kPiece);
}

void LongTable::HandOn(std::size_t count) {
  const std::string_view bytes = std::string_view(waiting_).substr(0, count);
  sink_(bytes, header_.size() + handed_on_);
  sum_ = AddWords(sum_, bytes);
  handed_on_ += count;
  waiting_.erase(0, count);
}

void LongTable::End() {
  waiting_.resize((waiting_.size() + kBlock - 1) / kBlock * kBlock, '\0');
  HandOn(waiting_.size());
  const std::size_t primary = header_.find("XTENSION");  // bytes before the table's own header
  std::string own = header_.substr(primary);
  SetCard(own, "NAXIS2", fmt::format("{:>20}", rows_));
  SetCheckSum(own, sum_);
  sink_(header_.substr(0, primary) + own, 0);
}

}  // namespace quen::workbench
