#pragma once

#include <cairo.h>

#include <memory>
#include <string>

namespace quen_shs {

struct Colour {
  double red, green, blue, alpha;
};
inline constexpr Colour kPaper = {1.0, 1.0, 1.0, 1.0};
inline constexpr Colour kInk = {0.15, 0.15, 0.18, 1.0};
inline constexpr Colour kGrid = {0.85, 0.85, 0.87, 1.0};

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

/// A blank picture, drawn on with Cairo, in pixels from its top left corner.
class Canvas {
 public:
  Canvas(int width, int height);

  [[nodiscard]] cairo_t* Cairo() const { return context_.get(); }

  /// Writes a PNG file.
  /// @throws std::runtime_error  the file cannot be written
  void Save(const std::string& path) const;

 private:
  Surface surface_;
  Context context_;
};

void Use(cairo_t* cr, const Colour& colour);
void Write(cairo_t* cr, double x, double y, const std::string& text);

/// A number with three significant digits.
std::string Short(double value);

}  // namespace quen_shs
