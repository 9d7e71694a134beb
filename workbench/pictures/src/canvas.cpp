#include "workbench/pictures/src/canvas.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "workbench/fits/plain_text.hpp"
#include "workbench/pictures/src/typeface.hpp"

namespace quen::workbench {

namespace {

Surface MakeSurface(int width, int height) {
  Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), &cairo_surface_destroy);
  const cairo_status_t status = cairo_surface_status(surface.get());
  if (status == CAIRO_STATUS_SUCCESS) return surface;
  throw std::runtime_error(
      fmt::format("cannot draw a picture of {} x {} pixels: {}", width, height, cairo_status_to_string(status)));
}

/// A length that Cairo refuses where it does not fit.
int Length(std::size_t pixels) {
  constexpr std::size_t kMost = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(pixels, kMost));
}

}  // namespace

Image::Image(std::size_t width, std::size_t height) : surface_(MakeSurface(Length(width), Length(height))) {
  cairo_surface_flush(surface_.get());
}

std::uint32_t* Image::Row(std::size_t y) const {
  const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface_.get()));
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): Cairo's rows are 32-bit words
  return reinterpret_cast<std::uint32_t*>(cairo_image_surface_get_data(surface_.get()) + y * stride);
}

cairo_surface_t* Image::Filled() const {
  cairo_surface_mark_dirty(surface_.get());
  return surface_.get();
}

Canvas::Canvas(int width, int height)
    : surface_(MakeSurface(width, height)), context_(cairo_create(surface_.get()), &cairo_destroy) {
  constexpr double kFontSize = 15.0;
  Use(Cairo(), kPaper);
  cairo_paint(Cairo());
  cairo_set_font_face(Cairo(), Typeface());
  cairo_set_font_size(Cairo(), kFontSize);
  const std::unique_ptr<cairo_font_options_t, decltype(&cairo_font_options_destroy)> options(
      cairo_font_options_create(), &cairo_font_options_destroy);
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_SLIGHT);
  cairo_set_font_options(Cairo(), options.get());
}

void Canvas::RequireDrawn() const {
  const cairo_status_t status = cairo_status(Cairo());
  if (status == CAIRO_STATUS_SUCCESS) return;
  throw std::runtime_error(std::string("cannot draw the picture: ") + cairo_status_to_string(status));
}

std::string Canvas::Png() const {
  RequireDrawn();
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
  WriteOn(cr, text);
}

void WriteOn(cairo_t* cr, const std::string& text) { cairo_show_text(cr, Plain(text).c_str()); }

void WriteBefore(cairo_t* cr, double x, double y, const std::string& text) {
  Write(cr, x - Advance(cr, text), y, text);
}

void WriteAround(cairo_t* cr, double x, double y, const std::string& text) {
  Write(cr, x - Advance(cr, text) / 2.0, y, text);
}

double Advance(cairo_t* cr, const std::string& text) {
  cairo_text_extents_t extents;
  cairo_text_extents(cr, Plain(text).c_str(), &extents);
  return extents.x_advance;
}

std::vector<std::string> Wrapped(cairo_t* cr, const std::string& text, double width) {
  std::vector<std::string> lines;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!lines.empty() && Advance(cr, lines.back() + " " + word) <= width) {
      lines.back() += " " + word;
    } else {
      lines.push_back(word);
    }
  }
  return lines;
}

std::string Shortened(cairo_t* cr, const std::string& text, double width) {
  if (Advance(cr, text) <= width) return text;
  std::string beginning = Plain(text);
  while (!beginning.empty() && Advance(cr, beginning + "…") > width) beginning.pop_back();
  return beginning + "…";
}

std::string Short(double value) {
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.3g", value));
  return text.data();
}

}  // namespace quen::workbench
