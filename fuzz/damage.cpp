#include "fuzz/damage.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace quen::fuzz {
namespace {

constexpr std::size_t kCard = 80;
constexpr std::size_t kValueAt = 10;    // in a card
constexpr std::size_t kCutEvery = 720;  // bytes, in data

/// What stands in place of a card's value: numbers that do not fit, texts, and a format of each kind of column.
constexpr std::array<std::string_view, 63> kValues = {
    "",
    "-1",
    "0",
    "1",
    "2",
    "3",
    "7",
    "8",
    "999",
    "1000",
    "32768",
    "2147483647",
    "2147483648",
    "-2147483649",
    "4611686018427387904",
    "9223372036854775807",
    "-9223372036854775808",
    "18446744073709551616",
    "1e400",
    "-1e-400",
    "NaN",
    "T",
    "F",
    "()",
    "/",
    "&",
    "''",
    "'",
    "'IMAGE'",
    "'TABLE'",
    "'BINTABLE'",
    "'A3DTABLE'",
    "'RICE_1'",
    "'GZIP_1'",
    "1234567890123456789012345678901234567890123456789012345678901234567890",
    "'no quote at the end, and as long as a card can hold it, up to its last column",
    "'a''b'",
    "'0D'",
    "'D'",
    "'1B'",
    "'8X'",
    "'1L'",
    "'1I'",
    "'1J'",
    "'1K'",
    "'1E'",
    "'1C'",
    "'1M'",
    "'1U'",
    "'1V'",
    "'1S'",
    "'1W'",
    "'12A'",
    "'12A3'",
    "'1PD(9)'",
    "'1QB(99999)'",
    "'999999999D'",
    "'2147483648B'",
    "'-1D'",
    "'E15.7'",
    "'I999999'",
    "'(4,4)'",
    "'#1'"};

/// Three more damages of a card: blank, doubled over the next one, END.
constexpr std::size_t kDamagesOfCard = kValues.size() + 3;

/// Where cards start. A card has its value indicator in column 9, or is the END. Something may stand before the file.
std::vector<std::size_t> Cards(const Bytes& file) {
  const std::string_view text = Text(file);
  std::vector<std::size_t> cards;
  for (std::size_t at = std::min(text.size(), text.find("SIMPLE  =")); at + kCard <= text.size(); at += kCard) {
    const std::string_view card = text.substr(at, kCard);
    if (card.substr(8, 2) == "= " || card.starts_with("END     ")) cards.push_back(at);
  }
  return cards;
}

void Put(Bytes& file, std::size_t at, std::string_view text) {
  std::copy_n(text.begin(), std::min(text.size(), file.size() - at), file.begin() + static_cast<std::ptrdiff_t>(at));
}

Bytes WithCard(Bytes file, std::size_t card, std::size_t how) {
  std::string text(Text(file).substr(card, kCard));
  if (how < kValues.size()) {
    text.resize(kValueAt);
    text += kValues[how];
    text.resize(kCard, ' ');
  } else if (how == kValues.size()) {
    text.assign(kCard, ' ');
  } else if (how == kValues.size() + 1) {
    text += text;
  } else {
    text.assign("END");
    text.resize(kCard, ' ');
  }
  Put(file, card, text);
  return file;
}

/// Lengths to cut the file to: between cards, and in the data.
std::vector<std::size_t> Cuts(const Bytes& file) {
  std::vector<std::size_t> cuts = Cards(file);
  for (std::size_t at = 0; at < file.size(); at += kCutEvery) cuts.push_back(at + 1);
  return cuts;
}

}  // namespace

std::size_t CountDamages(const Bytes& file) { return Cards(file).size() * kDamagesOfCard + Cuts(file).size(); }

Bytes Damaged(const Bytes& file, std::size_t which) {
  const std::vector<std::size_t> cards = Cards(file);
  if (which < cards.size() * kDamagesOfCard) {
    return WithCard(file, cards[which / kDamagesOfCard], which % kDamagesOfCard);
  }
  const std::size_t length = Cuts(file)[which - cards.size() * kDamagesOfCard];
  return {file.begin(), file.begin() + static_cast<std::ptrdiff_t>(std::min(length, file.size()))};
}

}  // namespace quen::fuzz
