#include "tools/quen-shs/src/pictures/canvas.hpp"

#include <array>
#include <cstdio>
#include <stdexcept>

namespace quen_shs {

Canvas::Canvas(int width, int height)
    : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), &cairo_surface_destroy),
      context_(cairo_create(surface_.get()), &cairo_destroy) {
  constexpr double kFontSize = 15.0;
  Use(Cairo(), kPaper);
  cairo_paint(Cairo());
  cairo_select_font_face(Cairo(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(Cairo(), kFontSize);
}

std::string Canvas::Png() const {
  std::string bytes;
  const auto append = [](void* all, const unsigned char* data, unsigned int size) {
    try {
      static_cast<std::string*>(all)->append(data, data + size);
      return CAIRO_STATUS_SUCCESS;
    } catch (const std::exception&) {  // must not pass through Cairo
      return CAIRO_STATUS_NO_MEMORY;
    }
  };
  const cairo_status_t status = cairo_surface_write_to_png_stream(surface_.get(), append, &bytes);
  if (status != CAIRO_STATUS_SUCCESS) {
    throw std::runtime_error(std::string("cannot make the picture: ") + cairo_status_to_string(status));
  }
  return bytes;
}

void Use(cairo_t* cr, const Colour& colour) {
  cairo_set_source_rgba(cr, colour.red, colour.green, colour.blue, colour.alpha);
}

void Write(cairo_t* cr, double x, double y, const std::string& text) {
  cairo_move_to(cr, x, y);
  cairo_show_text(cr, text.c_str());
}

void WriteBefore(cairo_t* cr, double x, double y, const std::string& text) {
  cairo_text_extents_t extents;
  cairo_text_extents(cr, text.c_str(), &extents);
  Write(cr, x - extents.x_advance, y, text);
}

void WriteAround(cairo_t* cr, double x, double y, const std::string& text) {
  cairo_text_extents_t extents;
  cairo_text_extents(cr, text.c_str(), &extents);
  Write(cr, x - extents.x_advance / 2.0, y, text);
}

std::string Short(double value) {
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.3g", value));
  return text.data();
}

}  // namespace quen_shs
