#include "basesim/base_simulator.hpp"

#include <stdexcept>
#include <string>

#include "common/filesystem/filesystem.hpp"
#include "common/fits/fits.hpp"
#include "defs/camera.hpp"

// No name of defs/camera.hpp is used. It is here for its table of the product's cameras: each simulator carries one,
// made while the library is loaded.

namespace quen::basesim {
namespace {

using common::FileSystem::FindFileOrThrow;
using common::Fits::FitsFile;
using common::Fits::Handle;
using common::Fits::ReadColumnOrThrow;
using common::Fits::ReadImgPriv;
using image_processing::Roi;

/// Fills `matrix` from the primary image of a calibration file with these axes.
void LoadMatrix(const std::string& name, std::size_t naxis1, std::size_t naxis2, std::vector<double>& matrix) {
  const Handle file = FitsFile(FindFileOrThrow(name, {}), std::nullopt);
  ReadImgPriv(file, matrix.data(), matrix.size(), DOUBLE_IMG, TDOUBLE, {{naxis1, naxis2}});
}

std::vector<Roi> LoadRois(const std::string& path) {
  const Handle file = FitsFile(path, "rois");
  const auto x_low = ReadColumnOrThrow<std::uint16_t>(file, "x_low");
  const auto x_up = ReadColumnOrThrow<std::uint16_t>(file, "x_up");
  const auto x_ref = ReadColumnOrThrow<double>(file, "x_ref");
  const auto y_low = ReadColumnOrThrow<std::uint16_t>(file, "y_low");
  const auto y_up = ReadColumnOrThrow<std::uint16_t>(file, "y_up");
  const auto y_ref = ReadColumnOrThrow<double>(file, "y_ref");
  for (const std::size_t rows : {x_low.size(), x_up.size(), x_ref.size(), y_low.size(), y_up.size(), y_ref.size()}) {
    // Under a name that no function has: the text is the interface.
    if (rows != kNumRois) throw std::runtime_error("ConstructRois: Misconfigured fits file: " + path);
  }

  std::vector<Roi> rois;
  rois.reserve(kNumRois);
  for (std::size_t i = 0; i < kNumRois; ++i) {
    rois.emplace_back(x_low[i], x_up[i], y_low[i], y_up[i], kFrameWidth, kFrameHeight, x_ref[i], y_ref[i]);
  }
  return rois;
}

std::vector<std::uint8_t> LoadRoisUsed(const std::string& path) {
  return ReadColumnOrThrow<std::uint8_t>(FitsFile(path, "rois_used"), "is_used");
}

}  // namespace

BaseSimulator::BaseSimulator()
    : m2s(kNumModes * kNumSlopes),
      cm(kNumSlopes * kNumModes),
      rois(kNumRois, Roi(0, 0, 0, 0, 0, 0, 0, 0)),
      rois_used(kNumRois) {
  try {
    LoadMatrix("data/M2S.fits", kNumModes, kNumSlopes, m2s);
    LoadMatrix("data/CM.fits", kNumSlopes, kNumModes, cm);
    const std::string path = FindFileOrThrow("data/shs_rois.fits", {});
    rois = LoadRois(path);
    rois_used = LoadRoisUsed(path);
  } catch (const std::runtime_error& error) {
    // Spelled as hosts know it: the text is the interface.
    throw std::runtime_error("Simulator can not initialize: " + std::string(error.what()));
  }
}

}  // namespace quen::basesim
