#include "workbench/live/frame_statistics.hpp"

#include <algorithm>
#include <cstring>
#include <variant>

namespace quen::workbench {
namespace {

constexpr std::size_t kEnough = 4;  // comparisons, to know which rows always change

/// The integer keyword at this place, if there is one.
std::optional<std::int64_t> NumberAt(const stream::FrameInfo& info, std::size_t place) {
  if (place >= info.values.size()) return std::nullopt;
  const auto* const number = std::get_if<std::int64_t>(&info.values[place]);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

std::size_t RowsOf(const stream::Reader& reader) {
  std::size_t rows = 1;
  const std::vector<std::uint32_t> size = reader.Size();
  for (std::size_t axis = 1; axis < size.size(); ++axis) rows *= size[axis];
  return rows;
}

/// Whether rows that always change have changed at one end alone.
bool IsTorn(const std::vector<std::uint8_t>& has_changed, const std::vector<std::uint8_t>& is_lively) {
  std::size_t borders = 0;  // between rows that have changed and rows that have not
  std::optional<std::uint8_t> last;
  for (std::size_t row = 0; row < has_changed.size(); ++row) {
    if (is_lively[row] == 0) continue;
    if (last && *last != has_changed[row]) ++borders;
    last = has_changed[row];
  }
  return borders == 1;
}

}  // namespace

void FrameStatistics::Take(StreamEvent event, const Follower& stream) {
  if (!is_attached_) Attach(stream);
  switch (event) {
    case StreamEvent::kFrame:
      TakeFrame(stream);
      break;
    case StreamEvent::kOvertaken:
      if (stream.Stream().Count() != overtaken_) ++counts_.overtaken;
      overtaken_ = stream.Stream().Count();
      break;
    case StreamEvent::kMadeAnew:
      ++counts_.made_anew;
      Attach(stream);
      break;
    case StreamEvent::kNothing:
    case StreamEvent::kGone:
      break;
  }
}

void FrameStatistics::Attach(const Follower& stream) {
  is_attached_ = true;
  before_ = {.count = stream.CountAtFirst()};
  place_of_number_ = PlaceOf(stream.Stream(), "FRAME");
  is_lively_.assign(RowsOf(stream.Stream()), 1);
  comparisons_ = 0;
  contents_.reset();
  const std::vector<std::uint32_t> size = stream.Stream().Size();
  const stream::PixelType type = stream.Stream().Type();
  const bool has_16_bits = type == stream::PixelType::kInt16 || type == stream::PixelType::kUint16;
  if (!has_16_bits || size.size() != 2 || !FrameContents::Fits(size[0], size[1])) return;
  contents_.emplace(size[0], size[1]);
  levels_.resize(std::size_t{size[0]} * size[1]);
}

void FrameStatistics::TakeFrame(const Follower& stream) {
  const stream::FrameInfo& info = stream.Info();
  const std::optional<std::int64_t> number = NumberAt(info, place_of_number_);
  const bool is_new = info.count != stream.CountAtFirst();  // others were there before, who knows how long
  if (is_new) {
    ++counts_.frames;
    CountSteps(info, number);
    TakeTimes(stream);
    Compare(stream);
  }
  before_.count = info.count;
  before_.number = number;
  before_.pixels.assign(stream.Pixels().begin(), stream.Pixels().end());
  if (is_new) before_.arrival = stream.Arrival();
}

void FrameStatistics::CountSteps(const stream::FrameInfo& info, std::optional<std::int64_t> number) {
  if (info.count <= before_.count) {
    ++counts_.misnumbered;
    return;
  }
  const std::uint64_t written = info.count - before_.count;
  const bool is_numbered = number && before_.number && *number > *before_.number;
  const std::uint64_t rendered = is_numbered ? static_cast<std::uint64_t>(*number - *before_.number) : written;
  counts_.lost += std::min(written, rendered) - 1;
  if (rendered > written) counts_.unpublished += rendered - written;
  if (rendered < written) ++counts_.misnumbered;
}

void FrameStatistics::TakeTimes(const Follower& stream) {
  const stream::FrameInfo& info = stream.Info();
  if (info.written.tv_sec != 0) latencies_.Add(SecondsBetween(info.written, stream.Arrival()));
  if (!before_.arrival) return;
  const double interval = SecondsBetween(*before_.arrival, stream.Arrival());
  intervals_.Add(interval);
  elapsed_ += interval;
  if (info.count > before_.count) written_ += info.count - before_.count;
}

void FrameStatistics::Compare(const Follower& stream) {
  const std::vector<std::byte>& pixels = stream.Pixels();
  if (before_.pixels.size() != pixels.size()) return;
  const std::size_t rows = is_lively_.size();
  const std::size_t bytes = pixels.size() / rows;
  std::vector<std::uint8_t> has_changed(rows);
  for (std::size_t row = 0; row < rows; ++row) {
    has_changed[row] =
        std::memcmp(pixels.data() + row * bytes, before_.pixels.data() + row * bytes, bytes) != 0 ? 1 : 0;
  }
  if (std::ranges::count(has_changed, 1) == 0) {
    ++counts_.repeated;
  } else if (comparisons_ >= kEnough && IsTorn(has_changed, is_lively_)) {
    ++counts_.torn;
  } else {
    for (std::size_t row = 0; row < rows; ++row) is_lively_[row] &= has_changed[row];
    ++comparisons_;
    if (contents_) LookAtContents(stream);
  }
}

void FrameStatistics::LookAtContents(const Follower& stream) {
  std::memcpy(levels_.data(), stream.Pixels().data(), stream.Pixels().size());
  if (stream.Stream().Type() == stream::PixelType::kUint16) {
    constexpr int kHighest = 0x8000;
    for (std::int16_t& level : levels_) level = static_cast<std::int16_t>(static_cast<std::uint16_t>(level) - kHighest);
  }
  const FrameContents::Oddities oddities = contents_->Look(levels_);
  for (std::size_t k = 0; k < oddities.size(); ++k) {
    if (oddities.at(k)) ++counts_.odd.at(k);
  }
}

}  // namespace quen::workbench
