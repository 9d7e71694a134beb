#pragma once

#include <cairo.h>

#include <memory>
#include <span>

/// @file
/// The letters of all pictures: DejaVu Sans, from where systems keep it. Their places are a list, which
/// takes the place of fontconfig: that one, which Cairo would ask by itself, writes caches into the user's home, and
/// complains on standard error where it cannot.

namespace quen::workbench {

using FontFace = std::unique_ptr<cairo_font_face_t, decltype(&cairo_font_face_destroy)>;

/// The first of these font files that can be read; where there is none, plain strokes that Cairo has built in.
FontFace LoadTypeface(std::span<const char* const> paths);

/// The typeface of this process, loaded when it is first asked for.
cairo_font_face_t* Typeface();

}  // namespace quen::workbench
