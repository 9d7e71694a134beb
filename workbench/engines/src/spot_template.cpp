#include "workbench/engines/spot_template.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>

#include "centroiders/correlation.hpp"
#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"

namespace quen::workbench {
namespace {

constexpr quen::common::Limits kSize = quen::centroiders::CorrelationLimits::kSize;

bool IsSizeOfTemplate(const Axes& axes) {
  return axes.size() == 2 && axes[0] == axes[1] && axes[0] % 2 == 1 && kSize.Contain(static_cast<double>(axes[0]));
}

void RequireSpot(const InputFile& file, const SpotTemplate& spot) {
  const auto infinite = std::ranges::find_if(spot.values, [](double value) { return !std::isfinite(value); });
  if (infinite != spot.values.end()) {
    const auto k = static_cast<std::size_t>(infinite - spot.values.begin());
    throw std::runtime_error(fmt::format("{}: expected finite numbers in a template, found {:g} at column {}, row {}",
                                         file.Name(), *infinite, k % spot.size, k / spot.size));
  }
  if (std::ranges::count(spot.values, 0.0) == std::ssize(spot.values)) {
    throw std::runtime_error(file.Name() + ": expected the picture of a spot as a template, found zeros only");
  }
}

}  // namespace

SpotTemplate ReadTemplate(const InputFile& file) {
  return Reading(file, [&] {
    const quen::common::Fits::Handle image = OpenOnlyImage(
        file, fmt::format("a template of equal, odd sides from {:g} to {:g} pixels", kSize.lowest, kSize.highest),
        IsSizeOfTemplate);
    const Axes axes = quen::common::Fits::ReadImgParams(image).first;
    SpotTemplate spot = {axes[0], std::vector<double>(axes[0] * axes[0])};
    ReadElements(file, image, std::nullopt, spot.values);
    RequireSpot(file, spot);
    return spot;
  });
}

}  // namespace quen::workbench
