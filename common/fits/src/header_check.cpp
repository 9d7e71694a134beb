#include "common/fits/src/header_check.hpp"

#include <fitsio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>

namespace quen::common::Fits {
namespace {

constexpr std::size_t kCard = 80;
constexpr int kBlock = 2880;
constexpr std::size_t kKeyword = 8;      // characters
constexpr double kLargest = 1e18;        // bytes or elements; CFITSIO multiplies such numbers without a check
constexpr std::size_t kMostDigits = 15;  // of a column's repeat count
constexpr double kMostMissing = 1e8;     // bytes; a file to be written to is first filled up to what it declares

/// A keyword and what stands after its "=", from the first character that is not blank.
struct Card {
  std::string keyword;
  std::string value;
};

Card Parsed(std::string_view text) {
  Card card;
  card.keyword = text.substr(0, std::min(kKeyword, text.find(' ')));
  if (text[kKeyword] == '=') {
    const std::string_view value = text.substr(kKeyword + 1);
    card.value = value.substr(std::min(value.size(), value.find_first_not_of(' ')));
  }
  return card;
}

int Refuse(int status, const std::string& keyword, const std::string& reason) {
  fits_write_errmsg((keyword + " in the header " + reason + ".").c_str());
  return status;
}

/// Whether a value, not in quotes, is longer than CFITSIO's room for the name of a column.
bool IsTooLong(std::string_view value) {
  constexpr std::size_t kRoom = 69;
  if (value.starts_with("'")) return false;
  const std::size_t end = value.starts_with("(") ? value.find(')') : value.find_first_of(" /");
  return std::min(end, value.size()) >= kRoom;
}

bool IsIndexed(std::string_view keyword, std::string_view root) {
  return keyword.starts_with(root) && keyword.size() > root.size();
}

bool IsSize(std::string_view keyword) {
  return keyword == "PCOUNT" || keyword == "GCOUNT" || keyword == "THEAP" || IsIndexed(keyword, "NAXIS") ||
         IsIndexed(keyword, "ZNAXIS") || IsIndexed(keyword, "ZTILE");
}

int CheckCard(const Card& card) {
  const auto& [keyword, value] = card;
  if (keyword.starts_with("T") && IsTooLong(value)) return Refuse(NO_QUOTE, keyword, "has too long a value");
  if (IsIndexed(keyword, "TFORM")) {
    const std::size_t first = std::min(value.size(), value.find_first_not_of("' "));
    const std::size_t end = std::min(value.size(), value.find_first_not_of("0123456789", first));
    if (end - first > kMostDigits) return Refuse(BAD_TFORM, keyword, "has too large a repeat count");
  }
  if (IsSize(keyword)) {
    const double number = std::strtod(value.c_str(), nullptr);
    if (!(number >= 0.0 && number <= kLargest)) return Refuse(BAD_NAXES, keyword, "is negative or too large");
  }
  return 0;
}

/// How much data a header declares, as its cards come.
class DataSize {
 public:
  void Take(const Card& card) {
    const double number = std::strtod(card.value.c_str(), nullptr);
    if (card.keyword == "BITPIX") bits_ = std::abs(number);
    if (card.keyword == "NAXIS") axes_ = number;
    if (card.keyword == "PCOUNT") parameters_ = number;
    if (card.keyword == "GCOUNT") groups_ = number;
    const bool groups_only = card.keyword == "NAXIS1" && number == 0.0;  // "random groups" have no first axis
    if (IsIndexed(card.keyword, "NAXIS") && !groups_only) elements_ *= number;
  }

  [[nodiscard]] double Bytes() const { return axes_ == 0.0 ? 0.0 : bits_ / 8.0 * groups_ * (parameters_ + elements_); }

 private:
  double bits_ = 0.0;
  double axes_ = 0.0;
  double elements_ = 1.0;
  double parameters_ = 0.0;
  double groups_ = 1.0;
};

double Padded(double size) { return std::ceil(size / kBlock) * kBlock; }

/// What a look through one header has found.
struct Header {
  int status = 0;     ///< why it is refused
  double end = 0.0;   ///< where its last block ends in the file
  double data = 0.0;  ///< bytes of data that it declares
};

Header LookThrough(std::istream& file, double start) {
  Header header;
  header.end = start;
  DataSize size;
  bool complete = false;  // with its END
  std::string block(kBlock, ' ');
  file.seekg(static_cast<std::streamoff>(start));
  while (!complete && (file.read(block.data(), kBlock) || file.gcount() > 0)) {
    block.resize(static_cast<std::size_t>(file.gcount()));
    for (std::size_t at = 0; at + kCard <= block.size() && !complete; at += kCard) {
      const Card card = Parsed(std::string_view(block).substr(at, kCard));
      header.status = CheckCard(card);
      if (header.status != 0) return header;
      size.Take(card);
      complete = card.keyword == "END";
    }
    header.end += kBlock;
  }
  header.data = size.Bytes();
  return header;
}

/// The file on disk that CFITSIO will open under this name, if that is a plain FITS file.
std::optional<std::ifstream> OpenPlainFits(const std::string& name) {
  constexpr std::string_view kStart = "SIMPLE  =";
  constexpr std::string_view kScheme = "file://";
  std::array<char, FLEN_FILENAME> root{};
  int status = 0;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): CFITSIO reads the name only.
  fits_parse_rootname(const_cast<char*>(name.c_str()), root.data(), &status);
  std::string path = root.data();
  if (path.starts_with(kScheme)) path.erase(0, kScheme.size());
  std::error_code unreadable;
  if (status != 0 || !std::filesystem::is_regular_file(path, unreadable)) return std::nullopt;

  std::ifstream file(path, std::ios::binary);
  std::string start(kStart.size(), ' ');
  if (!file.read(start.data(), static_cast<std::streamsize>(start.size())) || start != kStart) return std::nullopt;
  return file;
}

}  // namespace

int CheckHeaders(const std::string& name, int mode) {
  std::optional<std::ifstream> file = OpenPlainFits(name);
  if (!file) return 0;
  file->seekg(0, std::ios::end);
  const auto size = static_cast<double>(file->tellg());
  const double room = mode == READWRITE ? size + kMostMissing : kLargest;
  double start = 0.0;
  while (start < size) {
    const Header header = LookThrough(*file, start);
    if (header.status != 0) return header.status;
    if (!(header.end > start)) return Refuse(READ_ERROR, "SIMPLE", "cannot be read");  // though the file goes on
    if (!(header.end + header.data <= room)) return Refuse(BAD_NAXES, "NAXIS", "declares too much data");
    start = header.end + Padded(header.data);
  }
  return 0;
}

}  // namespace quen::common::Fits
