// A host with frames of its own: a ready-made engine measures a spot, and no simulator is linked.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include "centroiders/centre_of_gravity.hpp"

int main() {
  try {
    constexpr std::uint16_t kSide = 24;
    std::vector<std::uint16_t> frame(std::size_t{kSide} * kSide);
    frame[12 + kSide * 11] = 100;  // column 12, row 11
    frame[13 + kSide * 11] = 300;

    // Columns and rows 4 to 19, and where the spot of a flat wavefront is.
    const quen::image_processing::Roi region(4, 20, 4, 20, kSide, kSide, 11.5, 11.5);
    quen::centroiders::CentreOfGravity engine;
    engine.Compute(frame, region);
    std::printf("x %+.3f y %+.3f pixels, flux %.0f\n", engine.x, engine.y, engine.flux);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
