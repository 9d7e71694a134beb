#include "workbench/fits/long_table.hpp"

#include <fmt/format.h>

#include <utility>

#include "workbench/fits/src/check_sum.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kPiece = 1024 * kFitsBlock;  // of rows that are handed on together

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
  waiting_.resize((waiting_.size() + kFitsBlock - 1) / kFitsBlock * kFitsBlock, '\0');
  HandOn(waiting_.size());
  const std::size_t primary = header_.find("XTENSION");  // bytes before the table's own header
  std::string own = header_.substr(primary);
  SetCard(own, "NAXIS2", fmt::format("{:>20}", rows_));
  SetCheckSum(own, sum_);
  sink_(header_.substr(0, primary) + own, 0);
}

}  // namespace quen::workbench
