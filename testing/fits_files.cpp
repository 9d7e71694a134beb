#include "testing/fits_files.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <stdexcept>
#include <string_view>

namespace quen::testing {
namespace {

void Check(int status, const std::string& path) {
  if (status != 0) throw std::runtime_error("test file " + path + ": CFITSIO status " + std::to_string(status));
}

fitsfile* OpenOrCreate(const std::string& path) {
  fitsfile* file = nullptr;
  int status = 0;
  if (std::filesystem::exists(path)) {
    fits_open_file(&file, path.c_str(), READWRITE, &status);
  } else {
    fits_create_file(&file, path.c_str(), &status);
  }
  Check(status, path);
  return file;
}

}  // namespace

void WriteImage(const std::string& path, int bitpix, const std::vector<long>& dims, const std::vector<double>& values) {
  int status = 0;
  fitsfile* file = nullptr;
  std::vector<long> lengths = dims;
  fits_create_file(&file, ("!" + path).c_str(), &status);
  fits_create_img(file, bitpix, static_cast<int>(lengths.size()), lengths.data(), &status);
  if (!values.empty()) {
    std::vector<double> copy = values;
    fits_write_img(file, TDOUBLE, 1, static_cast<LONGLONG>(copy.size()), copy.data(), &status);
  }
  fits_close_file(file, &status);
  Check(status, path);
}

std::vector<double> Ramp(std::size_t count, double first) {
  std::vector<double> values(count);
  std::iota(values.begin(), values.end(), first);
  return values;
}

void AppendTable(const std::string& path, const std::string& name, long rows, const std::vector<ColumnData>& columns,
                 int type) {
  fitsfile* const file = OpenOrCreate(path);
  std::vector<std::string> texts;
  texts.reserve(2 * columns.size());
  std::vector<char*> names;
  std::vector<char*> formats;
  for (const ColumnData& column : columns) {
    names.push_back(texts.emplace_back(column.name).data());
    formats.push_back(texts.emplace_back(column.format).data());
  }
  int status = 0;
  fits_create_tbl(file, type, rows, static_cast<int>(columns.size()), names.data(), formats.data(), nullptr,
                  name.c_str(), &status);
  int number = 1;
  for (const ColumnData& column : columns) {
    std::vector<double> values = column.values;
    if (!values.empty()) {
      fits_write_col(file, TDOUBLE, number, 1, 1, static_cast<LONGLONG>(values.size()), values.data(), &status);
    }
    ++number;
  }
  fits_close_file(file, &status);
  Check(status, path);
}

std::vector<char> Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<char> BytesWithoutChecksums(const std::string& path) {
  constexpr std::size_t kCard = 80;
  std::vector<char> bytes = Bytes(path);
  for (std::size_t start = 0; start + kCard <= bytes.size(); start += kCard) {
    const std::string_view card(bytes.data() + start, kCard);
    if (card.starts_with("CHECKSUM= ") || card.starts_with("DATASUM = ")) {
      std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(start), kCard, ' ');
    }
  }
  return bytes;
}

std::string Header(const std::vector<std::string>& cards) {
  std::string text;
  for (std::string card : cards) {
    card.resize(80, ' ');
    text += card;
  }
  text += "END";
  text.resize((text.size() + 2879) / 2880 * 2880, ' ');
  return text;
}

std::string Primary(const std::vector<std::string>& more) {
  std::vector<std::string> cards = {"SIMPLE  =                    T", "BITPIX  =                    8",
                                    "NAXIS   =                    0"};
  cards.insert(cards.end(), more.begin(), more.end());
  return Header(cards);
}

std::string TableOfDoubles(const std::string& rows, const std::vector<std::string>& more) {
  std::vector<std::string> cards = {"XTENSION= 'BINTABLE'",
                                    "BITPIX  =                    8",
                                    "NAXIS   =                    2",
                                    "NAXIS1  =                    8",
                                    "NAXIS2  = " + rows,
                                    "PCOUNT  =                    0",
                                    "GCOUNT  =                    1",
                                    "TFIELDS =                    1",
                                    "TFORM1  = 'D       '"};
  cards.insert(cards.end(), more.begin(), more.end());
  return Header(cards);
}

void WriteText(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

}  // namespace quen::testing
