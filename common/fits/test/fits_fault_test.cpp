#include <dlfcn.h>
#include <gtest/gtest.h>

#include "common/fits/fits.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"

// Failures of CFITSIO that no file brings about: this test stands in for one of its routines.

namespace {

using quen::common::Fits::FitsFile;
using quen::common::Fits::Handle;
using quen::common::Fits::ReadImgParams;

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the stand-in has nowhere else to look.
bool g_image_parameters_fail = false;

TEST(FitsFault, FailingParameterQueryIsReportedAndLeavesNoDescriptor) {
  const quen::testing::TempDir folder;
  quen::testing::WriteImage(folder / "image.fits", SHORT_IMG, {1}, {1});
  quen::testing::ClearMessages();
  const std::size_t descriptors = quen::testing::OpenDescriptors();
  {
    const Handle handle = FitsFile(folder / "image.fits", std::nullopt);
    g_image_parameters_fail = true;
    quen::testing::ExpectThrows<std::runtime_error>("Fits: Error getting img params: NULL input pointer, stand-in",
                                                    [&] { ReadImgParams(handle); });
    g_image_parameters_fail = false;
    EXPECT_EQ(ReadImgParams(handle).second, 16);
  }
  EXPECT_EQ(quen::testing::OpenDescriptors(), descriptors);
}

}  // namespace

extern "C" int ffgipr(fitsfile* fptr, int maxaxis, int* imgtype, int* naxis, long* naxes, int* status) {
  if (g_image_parameters_fail) {
    fits_write_errmsg("stand-in");
    return *status = NULL_INPUT_PTR;
  }
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): what dlsym returns.
  static const auto real = reinterpret_cast<decltype(&ffgipr)>(dlsym(RTLD_NEXT, "ffgipr"));
  return real(fptr, maxaxis, imgtype, naxis, naxes, status);
}
