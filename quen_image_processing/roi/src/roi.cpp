#include "quen_image_processing/roi/roi.hpp"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "common/logging/logging.hpp"

// The place that a log record carries, whatever the compiler calls it: hosts filter by these texts.
// NOLINTBEGIN(cppcoreguidelines-macro-usage): the logging facility's own.
#undef LOG4CPLUS_MACRO_FILE
#define LOG4CPLUS_MACRO_FILE() "../quen_image_processing/roi/src/roi"
#undef LOG4CPLUS_MACRO_FUNCTION
#define LOG4CPLUS_MACRO_FUNCTION() \
  "quen::image_processing::Roi::Roi(uint16_t, uint16_t, uint16_t, uint16_t, uint16_t, uint16_t, double, double)"
// NOLINTEND(cppcoreguidelines-macro-usage)

namespace quen::image_processing {
namespace {

std::uint16_t Narrow(int value) { return static_cast<std::uint16_t>(value); }

}  // namespace

Roi::Roi(std::uint16_t x_low, std::uint16_t x_up, std::uint16_t y_low, std::uint16_t y_up, std::uint16_t x_max,
         std::uint16_t y_max, double x_ref, double y_ref)
    : x_low(x_low),
      x_up(x_up),
      y_low(y_low),
      y_up(y_up),
      x_ref(x_ref),
      y_ref(y_ref),
      width(Narrow(x_up - x_low)),
      height(Narrow(y_up - y_low)),
      n_pixels(static_cast<std::uint64_t>(std::int64_t{x_up - x_low} * std::int64_t{y_up - y_low})),
      x_max(x_max),
      y_max(y_max) {
  if (y_max < y_up || y_up < y_low || x_max < x_up || x_up < x_low) {
    const std::string message = "Roi: invalid coordinates: (" + std::to_string(x_low) + ".." + std::to_string(x_up) +
                                "),(" + std::to_string(y_low) + ".." + std::to_string(y_up) + ")";
    LOG4CPLUS_ERROR_STR(common::GetLogger(), message);
    throw std::invalid_argument(message);
  }
  // Written so that a NaN passes.
  if (x_ref < 0 || x_ref > x_max || y_ref < 0 || y_ref > y_max) {
    const std::string message =
        "Roi: invalid reference point: (" + std::to_string(x_ref) + "," + std::to_string(y_ref) + ")";
    LOG4CPLUS_ERROR_STR(common::GetLogger(), message);
    throw std::invalid_argument(message);
  }
}

Roi Roi::Enlarge(std::uint16_t n) const {
  Roi grown = *this;
  grown.x_low = Narrow(x_low - std::min(x_low, n));
  grown.y_low = Narrow(y_low - std::min(y_low, n));
  grown.x_up = Narrow(x_up + std::min<int>(x_max - x_up, n));
  grown.y_up = Narrow(y_up + std::min<int>(y_max - y_up, n));
  grown.width = Narrow(grown.x_up - grown.x_low);
  grown.height = Narrow(grown.y_up - grown.y_low);
  grown.n_pixels = std::uint64_t{grown.width} * grown.height;
  return grown;
}

}  // namespace quen::image_processing
