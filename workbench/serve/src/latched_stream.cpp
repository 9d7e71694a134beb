#include "workbench/serve/latched_stream.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <utility>

#include "stream/names.hpp"
#include "workbench/fits/interruption.hpp"

namespace quen::workbench {
namespace {

using quen::stream::PixelType;

bool IsFloating(PixelType type) { return type == PixelType::kFloat || type == PixelType::kDouble; }

template <typename T>
void Convert(const std::vector<std::byte>& pixels, std::vector<double>& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    T value;
    std::memcpy(&value, pixels.data() + i * sizeof(T), sizeof(T));
    values[i] = static_cast<double>(value);
  }
}

}  // namespace

LatchedStream::LatchedStream(std::string name, std::vector<std::uint32_t> size, Clock& clock)
    : name_(std::move(name)), size_(std::move(size)), clock_(clock) {
  static_cast<void>(quen::stream::PathOf(name_));
  const auto values = std::reduce(size_.begin(), size_.end(), std::size_t{1}, std::multiplies<>());
  newest_.resize(values);
  values_.resize(values);
}

bool LatchedStream::Attach() {
  constexpr Time kInterval = std::chrono::milliseconds(10);  // looking into a folder takes its time
  if (looked_for_ != Time::min() && clock_.Now() < looked_for_ + kInterval) return false;
  try {
    reader_.emplace(name_);
  } catch (const quen::stream::NotThere&) {
    looked_for_ = clock_.Now();
    return false;
  }
  RequireShape();
  pixels_.resize(reader_->Bytes());
  seen_ = 0;
  ++counts_.found;
  return true;
}

void LatchedStream::RequireShape() const {
  std::vector<std::uint32_t> size = reader_->Size();
  while (size.size() > size_.size() && size.back() == 1) size.pop_back();
  if (IsFloating(reader_->Type()) && size == size_) return;
  throw std::runtime_error(fmt::format(
      "{}: expected a stream of {} floats or doubles, found {} {}; end the program that makes it, or give another name",
      quen::stream::PathOf(name_), fmt::join(size_, " x "), fmt::join(reader_->Size(), " x "),
      IsFloating(reader_->Type()) ? "of them" : "of another type"));
}

bool LatchedStream::Look() {
  if (reader_ && reader_->IsReplaced()) {
    Take();
    before_ += reader_->Count();
    reader_.reset();
    looked_for_ = Time::min();
    ++counts_.lost;
  }
  return reader_ || Attach() ? Take() : true;
}

bool LatchedStream::Take() {
  constexpr int kTries = 20;
  if (reader_->Count() == seen_) return true;
  bool is_whole = false;
  for (int k = 0; k < kTries && !is_whole; ++k) {
    if (k > 0) std::this_thread::yield();
    is_whole = reader_->Read(pixels_, info_);
  }
  if (!is_whole) {
    ++counts_.torn;
    return false;
  }
  seen_ = info_.count;
  reader_->Type() == PixelType::kFloat ? Convert<float>(pixels_, newest_) : Convert<double>(pixels_, newest_);
  if (!std::ranges::all_of(newest_, [](double value) { return std::isfinite(value); })) {
    ++counts_.not_finite;
    return true;
  }
  std::swap(values_, newest_);
  number_ = seen_;
  ++counts_.received;
  return true;
}

std::uint64_t LatchedStream::Written() { return before_ + (reader_ ? reader_->Count() : 0); }

bool LatchedStream::Await(std::uint64_t mark, Time limit) {
  constexpr Time kPause = std::chrono::milliseconds(20);
  const Time end = clock_.Now() + limit;
  while (!Look() || Written() <= mark) {
    const Time left = end - clock_.Now();
    if (left <= Time(0)) return false;
    if (reader_) {
      reader_->Wait(seen_, std::min(left, kPause));
      ThrowIfInterrupted();
    } else {
      clock_.WaitUntil(clock_.Now() + std::min<Time>(left, std::chrono::milliseconds(1)));
    }
  }
  return true;
}

}  // namespace quen::workbench
