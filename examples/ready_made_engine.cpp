// A host that measures with a ready-made engine, and asks how good it is.

#include <cstdio>
#include <exception>

#include "centroiders/score.hpp"
#include "centroiders/weighted_centre_of_gravity.hpp"

int main() {
  try {
    quen::shssim::ShsSimulator simulator;
    quen::centroiders::WeightedCentreOfGravity engine({.fwhm = quen::centroiders::kSpotFwhm});
    simulator.ComputeSlopes(engine, /*slope_limit=*/4.0, std::nullopt);

    const auto scores = quen::centroiders::ScoreEngines(simulator, {engine}, {.noise = 10.0});
    std::printf("weighted centre of gravity: RMS error at noise 10: %.4f pixels; least possible: %.4f\n",
                scores[0].x.rms, quen::centroiders::ErrorBound(10.0));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
