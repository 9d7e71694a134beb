#include "workbench/fits/image_extension.hpp"

#include <fmt/format.h>

#include <cstdint>

#include "workbench/fits/src/check_sum.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kPieceOfImage = 1024 * kFitsBlock;

class Cards {
 public:
  void Add(const std::string& keyword, long value) { Add(keyword, fmt::format("{:>20}", value)); }
  void AddText(const std::string& keyword, const std::string& value) { Add(keyword, fmt::format("'{:<8}'", value)); }

  /// With cards for the checksums, which are still to be set.
  std::string Bytes() {
    AddText("CHECKSUM", "");
    AddText("DATASUM", "");
    cards_ += "END";
    cards_.resize((cards_.size() + kFitsBlock - 1) / kFitsBlock * kFitsBlock, ' ');
    return cards_;
  }

 private:
  void Add(const std::string& keyword, const std::string& value) {
    cards_ += fmt::format("{:<80}", fmt::format("{:<8}= {}", keyword, value));
  }

  std::string cards_;
};

std::string HeaderOf(const ImageExtension& image) {
  Cards header;
  header.AddText("XTENSION", "IMAGE");
  header.Add("BITPIX", image.bitpix);
  header.Add("NAXIS", static_cast<long>(image.axes.size()));
  for (std::size_t k = 0; k < image.axes.size(); ++k) {
    header.Add(fmt::format("NAXIS{}", k + 1), static_cast<long>(image.axes[k]));
  }
  header.Add("PCOUNT", 0);
  header.Add("GCOUNT", 1);
  header.AddText("EXTNAME", image.name);
  if (!image.unit.empty()) header.AddText("BUNIT", image.unit);
  if (image.is_unsigned) {
    constexpr long kUnsigned = 32768;
    header.Add("BZERO", kUnsigned);
    header.Add("BSCALE", 1);
  }
  return header.Bytes();
}

}  // namespace

std::size_t HandOnImage(const ImageExtension& image, const Spool& data, const ByteSink& sink, std::size_t position) {
  std::string header = HeaderOf(image);
  std::size_t end = position + header.size();
  std::uint32_t sum = 0;
  for (std::uint64_t at = 0; at < data.Size(); at += kPieceOfImage) {
    std::string piece = data.Piece(at, kPieceOfImage);
    piece.resize((piece.size() + kFitsBlock - 1) / kFitsBlock * kFitsBlock, '\0');
    sink(piece, end);
    sum = AddWords(sum, piece);
    end += piece.size();
  }
  SetCheckSum(header, sum);
  sink(header, position);
  return end;
}

}  // namespace quen::workbench
