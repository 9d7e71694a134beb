#pragma once

#include <cairo.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quen::workbench {

struct Colour {
  double red, green, blue, alpha;
};
inline constexpr Colour kPaper = {1.0, 1.0, 1.0, 1.0};
inline constexpr Colour kInk = {0.15, 0.15, 0.18, 1.0};
inline constexpr Colour kGrid = {0.85, 0.85, 0.87, 1.0};

/// Colours of curves that stand beside each other, told apart also by those who do not see red, or green.
inline constexpr std::array<Colour, 8> kCurves = {{{0.00, 0.45, 0.70, 1.0},
                                                   {0.80, 0.40, 0.47, 1.0},
                                                   {0.07, 0.47, 0.20, 1.0},
                                                   {0.79, 0.71, 0.00, 1.0},
                                                   {0.20, 0.13, 0.53, 1.0},
                                                   {0.34, 0.71, 0.91, 1.0},
                                                   {0.60, 0.60, 0.20, 1.0},
                                                   {0.80, 0.47, 0.65, 1.0}}};

// Around what is drawn, pixels.
inline constexpr double kMargin = 40.0;
inline constexpr double kTop = 44.0;         ///< room for a title
inline constexpr double kTitleAbove = 14.0;  ///< of the title's base line above what is drawn

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

/// Pixels that are painted onto a picture, blank at first.
class Image {
 public:
  /// @throws std::runtime_error  more than Cairo takes (32767 along an axis), or than there is memory for
  Image(std::size_t width, std::size_t height);

  /// A row of 32-bit words, from the top: 8 bits each for red, green and blue, blue the lowest.
  [[nodiscard]] std::uint32_t* Row(std::size_t y) const;

  /// For Cairo, once all rows are filled.
  [[nodiscard]] cairo_surface_t* Filled() const;

 private:
  Surface surface_;
};

/// A blank picture, drawn on with Cairo, in pixels from its top left corner.
class Canvas {
 public:
  /// @throws std::runtime_error  as Image
  Canvas(int width, int height);

  [[nodiscard]] cairo_t* Cairo() const { return context_.get(); }

  /// The bytes of a PNG file.
  /// @throws std::runtime_error  something could not be drawn, or there is no memory for it
  [[nodiscard]] std::string Png() const;

 private:
  /// After its first error Cairo draws nothing more.
  void RequireDrawn() const;

  Surface surface_;
  Context context_;
};

void Use(cairo_t* cr, const Colour& colour);

/// Write text that begins at a point of its base line, goes on where the last text ended, ends at a point, or is
/// centred on one. It may hold any bytes: those that cannot be shown become question marks.
void Write(cairo_t* cr, double x, double y, const std::string& text);
void WriteOn(cairo_t* cr, const std::string& text);
void WriteBefore(cairo_t* cr, double x, double y, const std::string& text);
void WriteAround(cairo_t* cr, double x, double y, const std::string& text);

/// How far a text goes, pixels.
double Advance(cairo_t* cr, const std::string& text);

/// A text in lines that are no wider than this, but for words that are.
std::vector<std::string> Wrapped(cairo_t* cr, const std::string& text, double width);

/// A text as far as it goes in this width, with "…" where it goes on.
std::string Shortened(cairo_t* cr, const std::string& text, double width);

/// A number with three significant digits.
std::string Short(double value);

}  // namespace quen::workbench
