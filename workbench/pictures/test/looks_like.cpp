#include "workbench/pictures/test/looks_like.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "workbench/pictures/src/canvas.hpp"

namespace quen::testing {
namespace {

using quen::workbench::Surface;

constexpr int kReduction = 4;

Shades Load(const std::string& path) {
  const Surface surface(cairo_image_surface_create_from_png(path.c_str()), &cairo_surface_destroy);
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return {};
  Shades shades = {cairo_image_surface_get_width(surface.get()), cairo_image_surface_get_height(surface.get()), {}};
  const unsigned char* const data = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  for (int y = 0; y < shades.height; ++y) {
    for (int x = 0; x < shades.width; ++x) {
      for (int channel = 0; channel < 3; ++channel) shades.values.push_back(data[y * stride + 4 * x + channel]);
    }
  }
  return shades;
}

/// Means over squares.
Shades Reduced(const Shades& shades) {
  Shades reduced = {shades.width / kReduction, shades.height / kReduction, {}};
  for (int y = 0; y < reduced.height; ++y) {
    for (int x = 0; x < reduced.width; ++x) {
      for (int channel = 0; channel < 3; ++channel) {
        double sum = 0.0;
        for (int b = 0; b < kReduction; ++b) {
          for (int a = 0; a < kReduction; ++a) sum += shades.At(kReduction * x + a, kReduction * y + b, channel);
        }
        reduced.values.push_back(sum / (kReduction * kReduction));
      }
    }
  }
  return reduced;
}

void Save(const Shades& shades, const std::string& path) {
  const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, shades.width, shades.height),
                        &cairo_surface_destroy);
  cairo_surface_flush(surface.get());
  unsigned char* const data = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  for (int y = 0; y < shades.height; ++y) {
    for (int x = 0; x < shades.width; ++x) {
      for (int channel = 0; channel < 3; ++channel) {
        data[y * stride + 4 * x + channel] = static_cast<unsigned char>(std::lround(shades.At(x, y, channel)));
      }
    }
  }
  cairo_surface_mark_dirty(surface.get());
  cairo_surface_write_to_png(surface.get(), path.c_str());
}

}  // namespace

double Difference(const Shades& one, const Shades& other) {
  constexpr double kLittle = 8.0;  // of 255: less than a thin stroke makes of a square
  if (one.width != other.width || one.height != other.height) return 1.0;
  double differing = 0.0;
  for (std::size_t k = 0; k < one.values.size(); ++k) {
    if (std::abs(one.values[k] - other.values[k]) > kLittle) differing += 1.0;
  }
  return differing / static_cast<double>(one.values.size());
}

void ExpectLooksLike(const std::string& name, const std::function<std::string()>& draw) {
  const TempDir folder;
  WriteText(folder / "picture.png", draw());
  const Shades drawn = Reduced(Load(folder / "picture.png"));
  const std::string reference = QUEN_SOURCE_DIR "/workbench/pictures/test/expected/" + name + ".png";
  if (std::getenv("QUEN_UPDATE_PICTURES") != nullptr) {
    std::filesystem::create_directories(std::filesystem::path(reference).parent_path());
    Save(drawn, reference);
  }
  ASSERT_GT(drawn.width, 100) << name;
  EXPECT_LT(Difference(drawn, Load(reference)), kTolerance) << name;
}

void ExpectDrawn(const std::function<std::string()>& draw) {
  const TempDir folder;
  WriteText(folder / "picture.png", draw());
  EXPECT_GT(Load(folder / "picture.png").width, 100);
}

std::vector<std::pair<double, double>> ExtremePairs() {
  std::vector<std::pair<double, double>> pairs;
  for (std::size_t k = 0; k < kExtremes.size(); ++k) {
    for (const std::size_t step : {0U, 1U, 4U}) {
      pairs.emplace_back(kExtremes.at(k), kExtremes.at((k + step) % kExtremes.size()));
    }
  }
  return pairs;
}

}  // namespace quen::testing
