#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <gsl/span>
#include <vector>

namespace quen::workbench {

/// What can be odd about the pixels of a frame.
enum class Oddity : std::uint8_t {
  kDark,       ///< its light is gone
  kSaturated,  ///< all pixels have one value, the largest
  kDisplaced,  ///< all of it, by whole pixels
  kStuck,      ///< a part of it is as it was in the frame before
  kLost,       ///< spots are missing
  kPixels,     ///< single pixels stick out of their neighbours
  kNoisy,      ///< its noise is larger
};

struct OddityName {
  Oddity oddity;
  const char* key;   ///< "dark"
  const char* text;  ///< what is told of such frames
};

/// All of them, in the order of their values.
inline constexpr std::array<OddityName, 7> kOddities = {{
    {Oddity::kDark, "dark", "without light"},
    {Oddity::kSaturated, "saturated", "all pixels at one value, the largest"},
    {Oddity::kDisplaced, "displaced", "by whole pixels"},
    {Oddity::kStuck, "stuck", "part of each as in the frame before"},
    {Oddity::kLost, "spots_lost", "a spot is missing"},
    {Oddity::kPixels, "odd_pixels", "single pixels stick out"},
    {Oddity::kNoisy, "noisy", "more than usual"},
}};

/// Looks at frame after frame of spots on a dark ground, and tells what is odd about one beside those before.
///
/// What is usual is learned from the first frames, by medians, so that an odd one among them does no harm, and goes on
/// with the sound ones; a spot that stays away is usual after some tens of frames. The frame is taken apart into
/// tiles of 12 × 12 pixels, a quarter of a sub-aperture's region; the frame's last columns and rows may be in none. One
/// thread; allocates in the constructor alone.
class FrameContents {
 public:
  /// Frames before it judges.
  static constexpr std::size_t kLearned = 16;
  static constexpr std::size_t kTile = 12;  ///< pixels

  /// Whether frames of so many pixels are large enough, four tiles along both axes.
  static bool Fits(std::size_t columns, std::size_t rows) { return columns >= 4 * kTile && rows >= 4 * kTile; }

  /// @param columns, rows  of all frames; Fits
  FrameContents(std::size_t columns, std::size_t rows);

  using Oddities = std::array<bool, kOddities.size()>;

  /// What is odd about the next frame; nothing while it learns. Dark, saturated and displaced frames are told of that
  /// alone.
  /// @param frame  rows × columns, row by row; unsigned pixels less 32768
  Oddities Look(gsl::span<const std::int16_t> frame);

 private:
  /// A number that is learned as a median, and then follows slowly.
  class Usual {
   public:
    void Take(double value);
    [[nodiscard]] double Value() const { return value_; }

   private:
    std::array<double, kLearned> first_ = {};
    std::size_t count_ = 0;
    double value_ = 0.0;
  };

  /// Sums over a frame.
  struct Sums {
    std::vector<std::int32_t> tiles;
    std::array<std::vector<std::int64_t>, 2> profiles;  ///< sums over rows, of each column; and the other way round
    double ground = 0.0;                                ///< median of the pixels

    [[nodiscard]] double Light(std::size_t tile) const;  ///< above the ground
  };

  [[nodiscard]] gsl::span<const std::int16_t> Row(gsl::span<const std::int16_t> frame, std::size_t row) const {
    return frame.subspan(row * columns_, columns_);
  }
  void SumUp(gsl::span<const std::int16_t> frame);
  void MeasureGround(gsl::span<const std::int16_t> frame);
  [[nodiscard]] double Contrast();
  [[nodiscard]] double Movement() const;
  [[nodiscard]] bool IsDisplaced(double movement) const;
  [[nodiscard]] bool IsStuck(gsl::span<const std::int16_t> frame);
  double MarkLostSpots();
  [[nodiscard]] double LargestExcess(gsl::span<const std::int16_t> frame);
  void FindExcesses(gsl::span<const std::int16_t> frame, std::size_t row);
  void Remember(gsl::span<const std::int16_t> frame);

  std::size_t columns_;
  std::size_t rows_;
  std::size_t tile_columns_;
  std::size_t tile_rows_;
  std::size_t looks_ = 0;

  Sums now_;
  Sums before_;         ///< of the last frame that was neither dark nor saturated nor displaced
  double noise_ = 0.0;  ///< mean distance below it
  Usual usual_noise_;
  Usual usual_contrast_;  ///< between bright tiles and dark ones
  Usual usual_movement_;  ///< of the profiles, from frame to frame
  Usual usual_loss_;      ///< of a tile's light, where spots move fast
  Usual usual_excess_;    ///< of a single pixel over its neighbours

  std::vector<std::int32_t> excesses_at_first_;  ///< of all pixels: those that stick out in the first frame are hot
  std::vector<std::int16_t> last_;               ///< frame
  std::vector<std::uint8_t> is_lively_;          ///< tiles that changed in every frame while it learned
  std::vector<std::uint8_t> is_lost_;            ///< tiles whose light is gone; they keep the light they had
  std::vector<std::int16_t> sample_;             ///< some of the pixels
  std::vector<std::int32_t> sorted_tiles_;
  std::vector<std::int32_t> column_sums_;              ///< over the rows of a tile
  std::array<std::vector<std::int16_t>, 2> extremes_;  ///< least and largest of three rows, of each column
  std::vector<std::int32_t> excesses_;                 ///< of a row
};

}  // namespace quen::workbench
