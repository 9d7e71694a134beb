#include "common/fits/src/header_check.hpp"

#include <fitsio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "common/fits/src/data_unit.hpp"
#include "common/fits/src/kept_messages.hpp"

namespace quen::common::Fits {
namespace {

constexpr std::size_t kCard = 80;
constexpr std::size_t kKeyword = 8;  // characters

// --- Cards ---------------------------------------------------------------------------------------------------------

/// A keyword and what stands after its "= ", from the first character that is not blank.
struct Card {
  std::string keyword;
  std::string value;
};

Card Parsed(std::string_view text) {
  Card card;
  card.keyword = text.substr(0, std::min(kKeyword, text.find(' ')));
  if (text.substr(kKeyword, 2) == "= ") {
    const std::string_view value = text.substr(kKeyword + 2);
    card.value = value.substr(std::min(value.size(), value.find_first_not_of(' ')));
  }
  return card;
}

/// The n of a keyword that is this root and a number; 0 for any other.
int Index(std::string_view keyword, std::string_view root) {
  if (!keyword.starts_with(root)) return 0;
  const std::string_view digits = keyword.substr(root.size());
  const std::string_view number = digits.substr(digits.starts_with("+") ? 1 : 0);
  int index = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), index);
  return error == std::errc() && end == number.data() + number.size() ? index : 0;
}

/// A whole number; -1, which is none of the sizes asked for, where there is none or it is too large.
std::int64_t Number(const Card& card) {
  std::int64_t number = -1;
  const std::size_t first = card.value.starts_with("+") ? 1 : 0;
  std::from_chars(card.value.data() + first, card.value.data() + card.value.size(), number);
  return number;
}

/// What stands between quotes, without blanks at its end.
std::string StringValue(const Card& card) {
  if (!card.value.starts_with("'")) return {};
  const std::string text = card.value.substr(1, card.value.find('\'', 1) - 1);
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

bool SameName(std::string_view one, std::string_view other) {
  return std::ranges::equal(one, other,
                            [](unsigned char a, unsigned char b) { return std::toupper(a) == std::toupper(b); });
}

/// What CFITSIO copies of a value that is not in quotes.
std::size_t Length(std::string_view value) {
  const bool is_pair = value.starts_with("(");
  const std::size_t end = is_pair ? value.find(')') : value.find_first_of(" /");
  return end == std::string_view::npos ? value.size() : is_pair ? end + 1 : end;
}

/// Whether CFITSIO's copy of a value overruns its room for the name of a column.
bool OverrunsName(std::string_view value) { return !value.starts_with("'") && Length(value) >= sizeof(tcolumn::ttype); }

/// The number that CFITSIO makes of a value; none if it makes none. Logical values are numbers to it.
std::optional<double> AnyNumber(const Card& card) {
  const bool is_text = card.value.starts_with("'");
  std::string number = is_text ? StringValue(card) : card.value.substr(0, Length(card.value));
  if (!is_text && number.find_first_of("TF") == 0) return number.starts_with("T") ? 1.0 : 0.0;
  const char* const digits = is_text ? " +-.0123456789EDe" : "+-.0123456789ED";
  if (number.find_first_not_of(digits) != std::string::npos || (!is_text && number.empty())) return std::nullopt;
  std::ranges::replace(number, 'D', 'E');
  char* stop = nullptr;
  const double value = std::strtod(number.c_str(), &stop);
  return *stop == '\0' || *stop == ' ' ? std::optional(value) : std::nullopt;
}

/// Whether CFITSIO takes a value for the whole number zero.
bool IsZero(const Card& card) { return std::abs(AnyNumber(card).value_or(1.0)) < 1.0; }

// --- Headers -------------------------------------------------------------------------------------------------------

/// CFITSIO's own arithmetic, which wraps around where a header declares absurd sizes.
std::int64_t Wrapped(std::uint64_t value) { return static_cast<std::int64_t>(value); }
std::int64_t Sum(std::int64_t a, std::int64_t b) {
  return Wrapped(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}
std::int64_t Product(std::int64_t a, std::int64_t b) {
  return Wrapped(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

std::int64_t Padded(std::int64_t size) { return Product(Sum(size, kBlock - 1) / kBlock, kBlock); }

/// Bytes of an element by its BITPIX; 0 if it is none.
std::int64_t BytesOf(std::int64_t bitpix) {
  constexpr std::array<std::int64_t, 6> kKnown = {8, 16, 32, 64, -32, -64};
  constexpr int kBitsPerByte = 8;
  return std::ranges::find(kKnown, bitpix) == kKnown.end() ? 0 : std::abs(bitpix) / kBitsPerByte;
}

/// One header, as its cards come.
class Header {
 public:
  void Take(const Card& card) {
    TakeMandatory(card);
    if (card.keyword == "EXTNAME") name_ = StringValue(card);
    if (card.keyword == "HDUNAME") other_name_ = StringValue(card);
    if (card.keyword == "THEAP") heap_start_ = Number(card);
    if (card.keyword == "PCOUNT") parameters_ = Number(card);
    if (card.keyword == "GCOUNT") groups_ = Number(card);
    if (card.keyword == "ZIMAGE" && card.value.starts_with("T")) is_tiled_ = true;
    if (card.keyword == "ZCMPTYPE") compression_ = StringValue(card);
    if (card.keyword == "ZNAXIS") tile_axes_ = Number(card);
    if (card.keyword == "ZVAL1") first_parameter_ = card;
    if (card.keyword == "ZVAL2") second_parameter_ = card;
    if (card.keyword == "ZBITPIX" || card.keyword == "ZNAXIS") {
      if (OverrunsComplaint(card.value, false)) bad_tiles_.emplace_back(0, card.keyword);
    }
    if (const int axis = std::max(Index(card.keyword, "ZNAXIS"), Index(card.keyword, "ZTILE")); axis > 0) {
      const bool is_none = card.keyword.starts_with("ZTILE") && IsZero(card);
      if (is_none || OverrunsComplaint(card.value, false)) bad_tiles_.emplace_back(axis, card.keyword);
    }
    if (const int list = Index(card.keyword, "TFORM"); list > 0 && IsList(StringValue(card))) lists_.push_back(list);
    const int column = Index(card.keyword, "TTYPE");
    if (column > 0 && OverrunsName(card.value)) overrun_ = overrun_ == 0 ? column : std::min(overrun_, column);
  }

  [[nodiscard]] bool IsTable() const { return IsBinaryTable() || type_ == "TABLE"; }
  [[nodiscard]] bool IsBinaryTable() const { return type_ == "BINTABLE" || type_ == "A3DTABLE" || type_ == "3DTABLE"; }
  /// Whether it is a binary table that CFITSIO does not take for an image.
  [[nodiscard]] bool IsPlainTable() const { return IsBinaryTable() && !is_tiled_; }
  [[nodiscard]] bool IsCalled(std::string_view name) const {
    return SameName(name_, name) || SameName(other_name_, name);
  }

  /// Whether it begins as CFITSIO wants it to. CFITSIO does not go on otherwise.
  [[nodiscard]] bool IsWellFormed() const {
    if (!is_in_order_ || bytes_ == 0 || axes_in_order_ != axes_) return false;
    if (type_ == "TABLE" && parameters_ != 0) return false;
    return !IsTable() || (axes_ == 2 && bytes_ == 1 && parameters_ >= 0 && groups_ == 1 && columns_ >= 0);
  }

  /// The number of the first column whose name CFITSIO would copy beyond its room; 0 if there is none.
  [[nodiscard]] int Overrun() const { return IsTable() && overrun_ <= columns_ ? overrun_ : 0; }

  /// Whether there are more axes, one after the other, than CFITSIO has room for.
  [[nodiscard]] bool OverrunsAxes() const {
    constexpr int kRoom = sizeof(FITSfile::imgnaxis) / sizeof(LONGLONG);
    return !IsTable() && axes_ > kRoom && axes_in_order_ >= kRoom;
  }

  /// The keyword at which CFITSIO would overrun a buffer or divide by zero when it looks for the tiles of a compressed
  /// image; empty if there is none.
  [[nodiscard]] std::string BadTiles() const {
    if (!is_tiled_ || !IsBinaryTable()) return {};
    const std::int64_t axes = tile_axes_ <= MAX_COMPRESS_DIM ? std::max(tile_axes_, std::int64_t{0}) : 0;
    const auto bad = std::ranges::find_if(bad_tiles_, [axes](const auto& each) { return each.first <= axes; });
    return bad == bad_tiles_.end() ? BadParameter() : bad->second;
  }

  /// Bytes of data.
  [[nodiscard]] std::int64_t DataSize() const {
    return axes_ == 0 ? 0 : Product(Product(Sum(parameters_, elements_), bytes_), groups_);
  }

  /// Bytes to the end of the data that CFITSIO leaves as they are; 0 if it takes the data for none, as it does where a
  /// heap begins at their start.
  [[nodiscard]] std::int64_t HeapEnd() const {
    if (!IsBinaryTable()) return DataSize();
    const std::int64_t start = heap_start_.value_or(Product(elements_, bytes_));
    return start == 0 ? 0 : Sum(start, parameters_);
  }

  /// Whether CFITSIO can go over its rows, as it does before it leaves it.
  [[nodiscard]] bool CanBeGoneOver(std::int64_t size) const {
    if (!IsBinaryTable() || parameters_ <= 0) return true;
    const auto lists = std::ranges::count_if(lists_, [this](int column) { return column <= columns_; });
    return Fits::CanBeGoneOver(lists, rows_, row_length_, size);
  }

 private:
  /// The keywords that stand first, each in its place.
  void TakeMandatory(const Card& card) {
    constexpr int kBeforeAxes = 3;
    const int position = position_++;
    if (position == 0) {
      type_ = card.keyword == "XTENSION" ? StringValue(card) : "";
      is_in_order_ = card.keyword == "XTENSION" || card.keyword == "SIMPLE";
    } else if (position == 1) {
      bytes_ = BytesOf(Number(card));
      is_in_order_ = is_in_order_ && card.keyword == "BITPIX";
    } else if (position == 2) {
      axes_ = Number(card);
      is_in_order_ = is_in_order_ && card.keyword == "NAXIS";
    } else if (position - kBeforeAxes == axes_in_order_ && axes_in_order_ < axes_) {
      if (Index(card.keyword, "NAXIS") != axes_in_order_ + 1 || Number(card) < 0) return;
      const bool groups_only = axes_in_order_ == 0 && Number(card) == 0;  // "random groups" have no first axis
      if (!groups_only || IsTable()) elements_ = Product(elements_, Number(card));
      (axes_in_order_ == 0 ? row_length_ : rows_) = Number(card);
      ++axes_in_order_;
    } else if (position == kTableColumns) {
      columns_ = card.keyword == "TFIELDS" ? Number(card) : -1;
    }
  }

  /// The same among the parameters of the compression: those that are whole numbers, the first as the size of a block.
  [[nodiscard]] std::string BadParameter() const {
    constexpr double kLargestPixel = 8;  // bytes; beyond that CFITSIO takes the two for interchanged
    const bool is_rice = compression_.starts_with("RICE");
    if (!first_parameter_ || (!is_rice && compression_ != "HCOMPRESS_1")) return {};
    if (is_rice && OverrunsComplaint(first_parameter_->value, false)) return first_parameter_->keyword;
    if (second_parameter_ && OverrunsComplaint(second_parameter_->value, false)) return second_parameter_->keyword;
    const bool is_turned = second_parameter_ && AnyNumber(*second_parameter_).value_or(0.0) > kLargestPixel;
    return is_rice && !is_turned && IsZero(*first_parameter_) ? first_parameter_->keyword : "";
  }

  static constexpr int kTableColumns = 7;

  int position_ = 0;  // of the next card
  bool is_in_order_ = false;
  int axes_in_order_ = 0;
  std::string type_;
  std::string name_;
  std::string other_name_;
  std::int64_t bytes_ = 0;  // of an element
  std::int64_t axes_ = 0;
  std::int64_t elements_ = 1;
  std::int64_t row_length_ = 0;
  std::int64_t rows_ = 0;
  std::int64_t parameters_ = 0;
  std::int64_t groups_ = 1;
  std::optional<std::int64_t> heap_start_;
  std::int64_t columns_ = -1;
  std::vector<int> lists_;  ///< numbers of columns
  int overrun_ = 0;
  bool is_tiled_ = false;
  std::string compression_;
  std::optional<Card> first_parameter_;
  std::optional<Card> second_parameter_;
  std::int64_t tile_axes_ = 0;
  std::vector<std::pair<std::int64_t, std::string>> bad_tiles_;  ///< keywords, each with its axis; 0 for those of none
};

/// Reads a header and finds its end, that of its last block; none if nothing can be read there.
std::optional<std::int64_t> ReadHeader(std::istream& file, std::int64_t start, Header& header) {
  std::int64_t end = start;
  bool is_complete = false;
  std::string block(static_cast<std::size_t>(kBlock), ' ');
  file.clear();
  file.seekg(start);
  while (!is_complete && (file.read(block.data(), kBlock) || file.gcount() > 0)) {
    block.resize(static_cast<std::size_t>(file.gcount()));
    for (std::size_t at = 0; at + kCard <= block.size() && !is_complete; at += kCard) {
      const Card card = Parsed(std::string_view(block).substr(at, kCard));
      header.Take(card);
      is_complete = card.keyword == "END";
    }
    end += kBlock;
  }
  return end == start ? std::nullopt : std::optional(end);
}

// --- Files ---------------------------------------------------------------------------------------------------------

/// The HDU that CFITSIO goes to: a number, counted from 0, a name, or the end of the file.
struct Goal {
  int number = std::numeric_limits<int>::max();
  std::string name;
  bool table_only = false;

  [[nodiscard]] bool IsReached(int at, const Header& header) const {
    if (at >= number) return true;
    return !name.empty() && header.IsCalled(name) && (!table_only || header.IsPlainTable());
  }
};

struct ParsedName {
  std::string path;
  Goal goal;
};

/// The HDU that stands between brackets: a number or a name.
Goal ParseExtension(const std::string& text) {
  Goal goal;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), goal.number);
  const bool is_number = error == std::errc() && end == text.data() + text.size();
  return is_number ? goal : Goal{Goal().number, text, false};
}

/// What CFITSIO makes of a name; none if it is not one of a file on disk.
std::optional<ParsedName> ParseByCfitsio(const std::string& name) {
  constexpr std::string_view kFile = "file://";
  using Field = std::array<char, FLEN_FILENAME>;
  Field type{};
  Field path{};
  Field output{};
  Field extension{};
  Field rows{};
  Field bins{};
  Field columns{};
  int status = 0;
  const KeptMessages kept;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): CFITSIO reads the name only.
  fits_parse_input_url(const_cast<char*>(name.c_str()), type.data(), path.data(), output.data(), extension.data(),
                       rows.data(), bins.data(), columns.data(), &status);
  if (status != 0 || std::string_view(type.data()) != kFile) return std::nullopt;
  const bool is_filtered = rows[0] != 0 || bins[0] != 0 || columns[0] != 0;  // then it looks for a table by itself
  Goal goal = ParseExtension(extension.data());
  if (extension[0] == 0 && !is_filtered) goal.number = 0;
  return ParsedName{path.data(), goal};
}

/// The same without CFITSIO, whose parser leaves messages for the whole process, where the name is "PATH" or
/// "PATH[HDU]" and nothing in it has a meaning for CFITSIO.
std::optional<ParsedName> ParseName(const std::string& name) {
  constexpr const char* kMeaningful = "[](){}<>+:!*?#;, ~";
  const std::size_t bracket = name.find('[');
  const std::string path = name.substr(0, bracket);
  const std::string rest = name.substr(path.size());
  const std::string extension = rest.size() > 2 && rest.back() == ']' ? rest.substr(1, rest.size() - 2) : "";
  const auto is_plain = [](const std::string& text) { return text.find_first_of(kMeaningful) == std::string::npos; };
  if (!is_plain(path) || !is_plain(extension) || extension.empty() != rest.empty()) return ParseByCfitsio(name);
  Goal goal = ParseExtension(extension);
  if (extension.empty()) goal.number = 0;
  return ParsedName{path, goal};
}

std::optional<std::ifstream> OpenPlainFits(const std::string& path) {
  constexpr std::string_view kStart = "SIMPLE  =";
  std::error_code unreadable;
  if (!std::filesystem::is_regular_file(path, unreadable)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  std::string start(kStart.size(), ' ');
  if (!file.read(start.data(), static_cast<std::streamsize>(start.size())) || start != kStart) return std::nullopt;
  return file;
}

std::int64_t SizeOf(std::istream& file) {
  file.clear();
  file.seekg(0, std::ios::end);
  return file.tellg();
}

Way Explore(const std::string& path, std::int64_t start, const Goal& goal) {
  std::optional<std::ifstream> file = OpenPlainFits(path);
  if (!file) return {};
  Way way;
  const std::int64_t size = SizeOf(*file);
  for (int number = 0; start >= 0; ++number) {
    Header header;
    const std::optional<std::int64_t> end = ReadHeader(*file, start, header);
    if (!end) {
      way.can_append = start - size <= kMostFilled;
      return way;
    }
    if (const int column = header.Overrun(); column > 0) {
      return {NO_QUOTE, "TTYPE" + std::to_string(column) + " in the header has too long a value.", way.can_be_left};
    }
    if (header.OverrunsAxes()) return {BAD_NAXIS, "NAXIS in the header has too many axes.", way.can_be_left};
    if (const std::string keyword = header.BadTiles(); !keyword.empty()) {
      return {BAD_NAXES, keyword + " in the header is no size of a tile.", way.can_be_left};
    }
    if (goal.IsReached(number, header) || !header.IsWellFormed()) return way;
    way.can_be_left = way.can_be_left && CanBeLeft(Sum(*end, header.HeapEnd()), size) && header.CanBeGoneOver(size);
    const std::int64_t next = Sum(*end, Padded(header.DataSize()));
    if (next >= 0 && next <= start) {
      return {BAD_NAXES, "NAXIS in the header declares data without end.", way.can_be_left};
    }
    start = next;
  }
  return way;
}

}  // namespace

bool OverrunsComplaint(std::string_view value, bool is_unsigned) {
  constexpr std::size_t kRoom = 28;
  const bool is_text = value.starts_with("'");
  const std::size_t end = is_text ? value.find('\'', 1) : Length(value);
  std::string number(value.substr(0, end));
  if (is_text) number.resize(number.find_last_not_of(' ') + 1);
  const bool is_long = number.size() + (is_text ? 1 : 0) > kRoom;
  if (is_text) number.erase(0, 1);
  if (!is_text && number.find_first_of("TF") == 0) return false;
  const auto stops_early = [](const char* stop) { return *stop != '\0' && *stop != ' '; };
  char* stop = nullptr;
  errno = 0;
  if (!is_text && number.find_first_of(".ED") == std::string::npos) {
    constexpr int kDecimal = 10;
    if (is_unsigned) {
      static_cast<void>(std::strtoull(number.c_str(), &stop, kDecimal));
    } else {
      static_cast<void>(std::strtoll(number.c_str(), &stop, kDecimal));
    }
    const bool is_too_large = errno == ERANGE;
    return (is_long && (is_too_large || stops_early(stop))) || (is_unsigned && is_too_large);
  }
  std::ranges::replace(number, 'D', 'E');
  const double real = std::strtod(number.c_str(), &stop);
  const double least = is_unsigned ? 0.0 : -0x1p63;
  const double most = is_unsigned ? 0x1p64 : 0x1p63;
  return is_long && (errno == ERANGE || stops_early(stop) || !(real >= least && real < most));
}

Way WayTo(const std::string& name) {
  const std::optional<ParsedName> parsed = ParseName(name);
  return parsed ? Explore(parsed->path, 0, parsed->goal) : Way();
}

Way WayToTable(const std::string& name, const std::string& extension) {
  const std::optional<ParsedName> parsed = ParseName(name);
  Goal goal;
  goal.name = extension;
  goal.table_only = true;
  return parsed ? Explore(parsed->path, 0, goal) : Way();
}

Way WayFrom(const std::string& name, std::int64_t start) {
  const std::optional<ParsedName> parsed = ParseName(name);
  return parsed ? Explore(parsed->path, start, {}) : Way();
}

int Refuse(const Way& way) {
  if (way.status != 0) fits_write_errmsg(way.reason.c_str());
  return way.status;
}

}  // namespace quen::common::Fits
