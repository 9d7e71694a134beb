#include "workbench/live/recording.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "workbench/fits/header.hpp"
#include "workbench/fits/memory_fits.hpp"
#include "workbench/fits/table.hpp"
#include "workbench/live/pixels.hpp"

namespace quen::workbench {
namespace {

/// A type of pixels as CFITSIO calls it: in files, and in memory.
struct FitsType {
  stream::PixelType type;
  int in_file;
  int in_memory;
};

constexpr std::array<FitsType, 10> kFitsTypes = {{{stream::PixelType::kUint8, BYTE_IMG, TBYTE},
                                                  {stream::PixelType::kInt8, SBYTE_IMG, TSBYTE},
                                                  {stream::PixelType::kUint16, USHORT_IMG, TUSHORT},
                                                  {stream::PixelType::kInt16, SHORT_IMG, TSHORT},
                                                  {stream::PixelType::kUint32, ULONG_IMG, TUINT},
                                                  {stream::PixelType::kInt32, LONG_IMG, TINT},
                                                  {stream::PixelType::kUint64, ULONGLONG_IMG, TULONGLONG},
                                                  {stream::PixelType::kInt64, LONGLONG_IMG, TLONGLONG},
                                                  {stream::PixelType::kFloat, FLOAT_IMG, TFLOAT},
                                                  {stream::PixelType::kDouble, DOUBLE_IMG, TDOUBLE}}};

const FitsType& FitsTypeOf(stream::PixelType type) {
  const auto* const found = std::ranges::find(kFitsTypes, type, &FitsType::type);
  if (found != kFitsTypes.end()) return *found;
  throw std::runtime_error(fmt::format(
      "the stream cannot be recorded: expected pixels that FITS has, whole numbers or float32 or float64, found {}",
      NameOf(type)));
}

struct Row {
  double count = 0.0;
  double acquired = 0.0;
  double written = 0.0;
};

double Seconds(const std::timespec& time) {
  constexpr double kNanosecond = 1e-9;
  return static_cast<double>(time.tv_sec) + kNanosecond * static_cast<double>(time.tv_nsec);
}

}  // namespace

Recording::Recording(const stream::Reader& reader, std::size_t frames)
    : type_(FitsTypeOf(reader.Type()).type), size_(reader.Size()), frames_(frames) {
  infos_.reserve(frames);
  pixels_.reserve(frames * reader.Bytes());
}

void Recording::Take(const stream::Reader& reader, const stream::FrameInfo& info,
                     const std::vector<std::byte>& pixels) {
  if (reader.Type() != type_ || reader.Size() != size_) {
    throw std::runtime_error(fmt::format("the stream was made anew with other frames: expected {}, found {}",
                                         InWords(size_, type_), InWords(reader.Size(), reader.Type())));
  }
  infos_.push_back(info);
  pixels_.insert(pixels_.end(), pixels.begin(), pixels.end());
}

std::string Recording::File(const std::string& stream) {
  MemoryFits fits;
  std::vector<std::size_t> axes(size_.begin(), size_.end());
  axes.push_back(frames_);
  const auto& [type, in_file, in_memory] = FitsTypeOf(type_);
  quen::common::Fits::WriteImgPriv(fits.Image(), pixels_.data(), pixels_.size() / stream::SizeOf(type), in_file,
                                   in_memory, axes);
  std::vector<std::byte>().swap(pixels_);  // most of the memory, perhaps
  WriteKey(fits.Image(), "STREAM", stream, "where the frames are from");

  std::vector<Row> rows;
  std::ranges::transform(infos_, std::back_inserter(rows), [](const stream::FrameInfo& info) {
    return Row{static_cast<double>(info.count), Seconds(info.acquired), Seconds(info.written)};
  });
  static const std::array<Column<Row>, 3> columns = {{{"count", "", "", &Row::count},
                                                      {"acquired", "s", "since 1970, TAI", &Row::acquired},
                                                      {"written", "s", "since 1970, TAI", &Row::written}}};
  AppendRows<Row>(fits, "frames", columns, std::move(rows));
  return fits.Bytes();
}

}  // namespace quen::workbench
