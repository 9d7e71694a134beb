#include "workbench/fits/src/cfitsio_status.hpp"

#include <fitsio.h>
#include <fmt/format.h>

#include <stdexcept>

void quen::workbench::RequireSuccess(int status, const std::string& failure) {
  if (status == 0) return;
  fits_clear_errmsg();
  throw std::runtime_error(fmt::format("{} (CFITSIO status {})", failure, status));
}
