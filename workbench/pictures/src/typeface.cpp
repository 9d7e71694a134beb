#include "workbench/pictures/src/typeface.hpp"

#include <cairo-ft.h>

#include <array>

namespace quen::workbench {
namespace {

constexpr std::array kUsualPaths = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", "/usr/share/fonts/dejavu-sans-fonts/DejaVuSans.ttf",
    "/usr/share/fonts/dejavu/DejaVuSans.ttf",          "/usr/share/fonts/TTF/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/DejaVuSans.ttf",        "/usr/local/share/fonts/DejaVuSans.ttf"};

/// Kept until the process ends: Cairo keeps fonts for later.
FT_Library Library() {
  static FT_Library const library = [] {
    FT_Library made = nullptr;
    return FT_Init_FreeType(&made) == 0 ? made : nullptr;
  }();
  return library;
}

void Release(void* face) { FT_Done_Face(static_cast<FT_Face>(face)); }

/// @return  none if the file is no font, or memory does not suffice
FontFace Load(const char* path) {
  static constexpr cairo_user_data_key_t kFace = {};
  FT_Face face = nullptr;
  if (FT_New_Face(Library(), path, 0, &face) != 0) return {nullptr, &cairo_font_face_destroy};
  FontFace font(cairo_ft_font_face_create_for_ft_face(face, 0), &cairo_font_face_destroy);
  if (cairo_font_face_set_user_data(font.get(), &kFace, face, &Release) == CAIRO_STATUS_SUCCESS) return font;
  Release(face);
  return {nullptr, &cairo_font_face_destroy};
}

}  // namespace

FontFace LoadTypeface(std::span<const char* const> paths) {
  for (const char* const path : paths) {
    if (FontFace font = Load(path)) return font;
  }
  constexpr const char* kBuiltIn = "@cairo:sans-serif";
  return {cairo_toy_font_face_create(kBuiltIn, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL),
          &cairo_font_face_destroy};
}

cairo_font_face_t* Typeface() {
  static const FontFace typeface = LoadTypeface(kUsualPaths);
  return typeface.get();
}

}  // namespace quen::workbench
