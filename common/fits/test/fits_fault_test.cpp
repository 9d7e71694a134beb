#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "common/fits/fits.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"

// Failures of CFITSIO that no file brings about: this test stands in for some of its routines.

namespace {

using quen::common::Fits::FitsFile;
using quen::common::Fits::Handle;
using quen::common::Fits::ReadImgParams;

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): the stand-ins have nowhere else to look.
bool g_image_parameters_fail = false;
bool g_checksum_fails = false;
int g_good_reads = 1'000'000;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

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

TEST(FitsFault, FailingChecksumDoesNotKeepTheReleaseFromWriting) {
  const quen::testing::TempDir folder;
  const std::vector<double> values = quen::testing::Ramp(12);
  {
    const Handle file = quen::common::Fits::FitsFileWrite(folder / "a.fits", true, std::nullopt);
    WriteImgPriv(file, values.data(), values.size(), DOUBLE_IMG, TDOUBLE, {4, 3});
    g_checksum_fails = true;
  }
  g_checksum_fails = false;
  const Handle file = FitsFile(folder / "a.fits", std::nullopt);
  std::vector<double> found(12);
  ReadImgPriv(file, found.data(), found.size(), DOUBLE_IMG, TDOUBLE, std::nullopt);
  EXPECT_EQ(found, values);
}

/// The look through headers ends where it cannot read on, or where the file has become shorter, and leaves the rest to
/// CFITSIO.
TEST(FitsFault, FailingLookThroughHeadersIsNoFailure) {
  const quen::testing::TempDir folder;
  const std::string path = folder / "a.fits";
  for (const char* const name : {"first", "second", "third"}) {
    quen::testing::AppendTable(path, name, 1000, {{"x", "D", {}}});
  }
  for (int good_reads = 0; good_reads < 10; ++good_reads) {
    g_good_reads = good_reads;
    EXPECT_EQ(FitsFile(path, "third")->hdu_type, BINARY_TBL);
    g_good_reads = good_reads;
    EXPECT_EQ(quen::common::Fits::FitsFileWrite(path, false, "third")->hdu_type, BINARY_TBL);
  }
  g_good_reads = 1'000'000;
}

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast): what dlsym returns.
/// What streams read by; CFITSIO reads by fread.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): in no reserved words.
extern "C" ssize_t read(int descriptor, void* buffer, std::size_t size) {
  static const auto real = reinterpret_cast<decltype(&read)>(dlsym(RTLD_NEXT, "read"));
  if (g_good_reads-- > 0) return real(descriptor, buffer, size);
  errno = EIO;
  return -1;
}

extern "C" int ffpcks(fitsfile* fptr, int* status) {
  if (g_checksum_fails) return *status = NUM_OVERFLOW;
  static const auto real = reinterpret_cast<decltype(&ffpcks)>(dlsym(RTLD_NEXT, "ffpcks"));
  return real(fptr, status);
}

extern "C" int ffgipr(fitsfile* fptr, int maxaxis, int* imgtype, int* naxis, long* naxes, int* status) {
  if (g_image_parameters_fail) {
    fits_write_errmsg("stand-in");
    return *status = NULL_INPUT_PTR;
  }
  static const auto real = reinterpret_cast<decltype(&ffgipr)>(dlsym(RTLD_NEXT, "ffgipr"));
  return real(fptr, maxaxis, imgtype, naxis, naxes, status);
}
// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
