#include "workbench/live/frame_contents.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace quen::workbench {
namespace {

constexpr double kPixelsOfTile = FrameContents::kTile * FrameContents::kTile;

/// How far two profiles are apart when one of them is displaced around its end.
double Misfit(const std::vector<std::int64_t>& now, const std::vector<std::int64_t>& before, std::size_t places) {
  double sum = 0.0;
  for (std::size_t k = 0; k < before.size(); ++k) {
    const std::size_t to = k + places < before.size() ? k + places : k + places - before.size();
    sum += std::abs(static_cast<double>(now[to] - before[k]));
  }
  return sum;
}

}  // namespace

void FrameContents::Usual::Take(double value) {
  constexpr double kSlowly = 1.0 / 64.0;
  if (count_ >= kLearned) {
    value_ += kSlowly * (value - value_);
    return;
  }
  first_.at(count_++) = value;
  std::array<double, kLearned> sorted = first_;
  const auto middle = static_cast<std::ptrdiff_t>(count_ / 2);
  std::nth_element(sorted.begin(), sorted.begin() + middle, sorted.begin() + static_cast<std::ptrdiff_t>(count_));
  value_ = sorted.at(count_ / 2);
}

double FrameContents::Sums::Light(std::size_t tile) const { return tiles[tile] - kPixelsOfTile * ground; }

FrameContents::FrameContents(std::size_t columns, std::size_t rows)
    : columns_(columns), rows_(rows), tile_columns_(columns / kTile), tile_rows_(rows / kTile) {
  constexpr std::size_t kStep = 41;  // shares no divisor with a frame's columns
  const std::size_t tiles = tile_columns_ * tile_rows_;
  for (Sums* const sums : {&now_, &before_}) {
    sums->tiles.resize(tiles);
    sums->profiles = {std::vector<std::int64_t>(tile_columns_ * kTile), std::vector<std::int64_t>(tile_rows_ * kTile)};
  }
  excesses_at_first_.resize(columns * rows);
  last_.resize(columns * rows);
  is_lively_.assign(tiles, 1);
  is_lost_.assign(tiles, 0);
  sample_.resize(columns * rows / kStep);
  sorted_tiles_.resize(tiles);
  column_sums_.resize(columns);
  extremes_ = {std::vector<std::int16_t>(columns), std::vector<std::int16_t>(columns)};
  excesses_.resize(columns);
}

FrameContents::Oddities FrameContents::Look(gsl::span<const std::int16_t> frame) {
  constexpr double kGone = 0.25;
  constexpr double kMoreNoise = 1.5;
  constexpr double kLeastNoise = 0.05;  // of pixels that are whole numbers
  constexpr double kMoreExcess = 3.0;
  constexpr double kLeastExcess = 30.0;  // of noise: twelve standard deviations of a Gaussian one
  Oddities found = {};
  const auto mark = [&](Oddity oddity, bool is) { found.at(static_cast<std::size_t>(oddity)) = is; };
  SumUp(frame);
  MeasureGround(frame);
  const double contrast = Contrast();
  const double movement = looks_ == 0 ? 0.0 : Movement();
  if (looks_ >= kLearned) {
    const auto [least, largest] = std::ranges::minmax(frame);
    if (least == largest && largest >= std::ranges::max(last_)) {
      mark(Oddity::kSaturated, true);
      return found;
    }
    if (contrast < kGone * usual_contrast_.Value()) {
      mark(Oddity::kDark, true);
      return found;
    }
    if (IsDisplaced(movement)) {
      mark(Oddity::kDisplaced, true);
      return found;
    }
  }
  const double excess = LargestExcess(frame);
  const bool is_stuck = IsStuck(frame);
  const double loss = MarkLostSpots();
  if (looks_ >= kLearned) {
    const double usual_noise = usual_noise_.Value();
    const bool is_noisy = noise_ > kMoreNoise * usual_noise + kLeastNoise;
    const double sticks_out = kMoreExcess * usual_excess_.Value() + kLeastExcess * std::max(noise_, usual_noise);
    mark(Oddity::kNoisy, is_noisy);
    mark(Oddity::kPixels, excess > sticks_out);
    mark(Oddity::kStuck, is_stuck && usual_noise > kLeastNoise);  // without noise, what stands still is the same
    mark(Oddity::kLost, std::ranges::find(is_lost_, 1) != is_lost_.end());
  }
  if (std::ranges::find(found, true) == found.end()) {
    usual_noise_.Take(noise_);
    usual_contrast_.Take(contrast);
    if (looks_ > 0) usual_movement_.Take(movement);
    usual_excess_.Take(excess);
    usual_loss_.Take(loss);
  }
  Remember(frame);
  return found;
}

void FrameContents::SumUp(gsl::span<const std::int16_t> frame) {
  auto& [of_columns, of_rows] = now_.profiles;
  std::ranges::fill(of_columns, 0);
  for (std::size_t band = 0; band < tile_rows_; ++band) {
    std::ranges::fill(column_sums_, 0);
    for (std::size_t row = band * kTile; row < (band + 1) * kTile; ++row) {
      const std::int16_t* const pixels = Row(frame, row).data();
      std::int32_t sum = 0;
      for (std::size_t column = 0; column < of_columns.size(); ++column) {
        column_sums_[column] += pixels[column];
        sum += pixels[column];
      }
      of_rows[row] = sum;
    }
    for (std::size_t column = 0; column < of_columns.size(); ++column) {
      of_columns[column] += column_sums_[column];
    }
    for (std::size_t tile = 0; tile < tile_columns_; ++tile) {
      const std::int32_t* const first = &column_sums_[tile * kTile];
      now_.tiles[band * tile_columns_ + tile] = std::accumulate(first, first + kTile, 0);
    }
  }
}

void FrameContents::MeasureGround(gsl::span<const std::int16_t> frame) {
  const std::size_t step = frame.size() / sample_.size();
  for (std::size_t k = 0; k < sample_.size(); ++k) sample_[k] = frame[k * step];
  const auto middle = sample_.begin() + static_cast<std::ptrdiff_t>(sample_.size() / 2);
  std::ranges::nth_element(sample_, middle);
  now_.ground = *middle;
  double below = 0.0;
  for (auto pixel = sample_.begin(); pixel != middle; ++pixel) below += now_.ground - *pixel;
  noise_ = below / static_cast<double>(sample_.size());
}

double FrameContents::Contrast() {
  const auto quantile = [&](std::size_t twentieths) {
    const auto place = sorted_tiles_.begin() + static_cast<std::ptrdiff_t>(sorted_tiles_.size() * twentieths / 20);
    std::ranges::nth_element(sorted_tiles_, place);
    return static_cast<double>(*place);
  };
  std::ranges::copy(now_.tiles, sorted_tiles_.begin());
  return quantile(19) - quantile(1);
}

double FrameContents::Movement() const {
  return Misfit(now_.profiles[0], before_.profiles[0], 0) + Misfit(now_.profiles[1], before_.profiles[1], 0);
}

/// Along one axis or both: the profiles go with those of the frame before once they are moved back.
bool FrameContents::IsDisplaced(double movement) const {
  constexpr double kMore = 3.0;
  constexpr double kClearly = 0.5;
  if (movement <= kMore * usual_movement_.Value()) return false;
  double moved_back = 0.0;
  bool is_moved = false;
  for (const std::size_t axis : {0U, 1U}) {
    const auto& now = now_.profiles.at(axis);
    const auto& before = before_.profiles.at(axis);
    double least = Misfit(now, before, 0);
    for (std::size_t places = 1; places < before.size(); ++places) {
      const double misfit = Misfit(now, before, places);
      if (misfit >= least) continue;
      least = misfit;
      is_moved = true;
    }
    moved_back += least;
  }
  return is_moved && moved_back < kClearly * movement;
}

/// Tiles that always change have not.
bool FrameContents::IsStuck(gsl::span<const std::int16_t> frame) {
  if (looks_ == 0) return false;
  bool is_stuck = false;
  const auto is_same = [&](std::size_t row, std::size_t column) {
    const auto now = Row(frame, row).subspan(column).first(kTile);
    const auto before = Row(last_, row).subspan(column).first(kTile);
    return std::equal(now.begin(), now.end(), before.begin());
  };
  for (std::size_t tile = 0; tile < is_lively_.size(); ++tile) {
    const std::size_t column = tile % tile_columns_ * kTile;
    std::size_t row = tile / tile_columns_ * kTile;
    const std::size_t end = row + kTile;
    while (row < end && is_same(row, column)) ++row;
    if (row < end || is_lively_[tile] == 0) continue;
    if (looks_ < kLearned) is_lively_[tile] = 0;
    is_stuck = true;
  }
  return is_stuck;
}

/// Tiles whose light is gone, and not moved to the tiles around; the largest light that any tile has lost so.
double FrameContents::MarkLostSpots() {
  constexpr double kGone = 0.25;
  constexpr double kClearly = 300.0;  // times the noise: ten standard deviations of a tile's sum
  constexpr double kMost = 0.65;
  constexpr double kMore = 2.0;
  constexpr double kBright = 0.25;  // of the contrast: the brightest of a spot's four tiles has so much
  constexpr std::size_t kFar = 2;   // tiles
  // Of spots two tiles apart, wherever they stand, there is as much in the window: those that move take nothing away.
  constexpr std::array<double, 2 * kFar + 1> kWeights = {0.25, 0.75, 1.0, 0.75, 0.25};
  const auto lost_around = [&](std::size_t tile) {
    const std::size_t column = tile % tile_columns_;
    const std::size_t row = tile / tile_columns_;
    double lost = 0.0;
    for (std::size_t y = std::max(row, kFar) - kFar; y <= std::min(row + kFar, tile_rows_ - 1); ++y) {
      for (std::size_t x = std::max(column, kFar) - kFar; x <= std::min(column + kFar, tile_columns_ - 1); ++x) {
        const std::size_t place = y * tile_columns_ + x;
        lost +=
            kWeights.at(y + kFar - row) * kWeights.at(x + kFar - column) * (before_.Light(place) - now_.Light(place));
      }
    }
    return lost;
  };
  const double least = std::max(kClearly * std::max(noise_, usual_noise_.Value()), kBright * usual_contrast_.Value());
  const double loss_of_spot = std::max(kMost * usual_contrast_.Value(), kMore * usual_loss_.Value());
  double largest = 0.0;
  for (std::size_t tile = 0; tile < is_lost_.size(); ++tile) {
    is_lost_[tile] = 0;
    const double before = before_.Light(tile);
    const double now = now_.Light(tile);
    if (before <= least || now >= kGone * before) continue;
    const double loss = lost_around(tile);
    largest = std::max(largest, loss);
    if (looks_ >= kLearned && loss > std::max(loss_of_spot, kMost * (before - now))) is_lost_[tile] = 1;
  }
  return largest;
}

/// How far each pixel is above twice what its brightest neighbour has over the ground, or below its darkest one. So
/// written that the compiler has vectors to work on.
void FrameContents::FindExcesses(gsl::span<const std::int16_t> frame, std::size_t row) {
  const int ground = static_cast<int>(now_.ground);
  const std::int16_t* const above = Row(frame, row - 1).data();
  const std::int16_t* const here = Row(frame, row).data();
  const std::int16_t* const below = Row(frame, row + 1).data();
  auto& [least, largest] = extremes_;
  for (std::size_t x = 0; x < columns_; ++x) {
    least[x] = std::min(here[x], std::min(above[x], below[x]));
    largest[x] = std::max(here[x], std::max(above[x], below[x]));
  }
  for (std::size_t x = 1; x + 1 < columns_; ++x) {
    const int high = std::max(std::max(largest[x - 1], largest[x + 1]), std::max(above[x], below[x]));
    const int low = std::min(std::min(least[x - 1], least[x + 1]), std::min(above[x], below[x]));
    excesses_[x] = std::max(here[x] - high - std::max(0, high - ground), low - here[x]);
  }
}

/// Of all pixels but those that stick out in the first frame, too.
double FrameContents::LargestExcess(gsl::span<const std::int16_t> frame) {
  std::int32_t most = 0;
  for (std::size_t row = 1; row + 1 < rows_; ++row) {
    FindExcesses(frame, row);
    const gsl::span<std::int32_t> at_first = gsl::span(excesses_at_first_).subspan(row * columns_, columns_);
    if (looks_ == 0) std::ranges::copy(excesses_, at_first.begin());
    if (std::ranges::max(excesses_) <= most) continue;
    for (std::size_t x = 0; x < columns_; ++x) {
      if (excesses_[x] > most && 2 * at_first[x] < excesses_[x]) most = excesses_[x];
    }
  }
  return most;
}

void FrameContents::Remember(gsl::span<const std::int16_t> frame) {
  constexpr double kKept = 0.99;  // so that a spot that stays away becomes usual
  const double ground = kPixelsOfTile * now_.ground;
  for (std::size_t tile = 0; tile < is_lost_.size(); ++tile) {
    if (is_lost_[tile] == 0) continue;
    now_.tiles[tile] = static_cast<std::int32_t>(ground + kKept * before_.Light(tile));
  }
  std::swap(now_, before_);
  std::ranges::copy(frame, last_.begin());
  ++looks_;
}

}  // namespace quen::workbench
