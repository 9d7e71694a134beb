#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <typeinfo>

#include "common/fits/fits.hpp"
#include "shssim/test/simulator_under_test.hpp"
#include "testing/calibration.hpp"
#include "testing/exceptions.hpp"
#include "testing/faulty_stdio.hpp"
#include "testing/second_reader.hpp"

// Every path of the library to and from a file, with the disk failing at every call that it gets: a documented
// exception or none, no descriptor left, and the next call as if nothing had been.

namespace quen::shssim {
namespace {

using namespace quen::common::Fits;
using quen::testing::BytesWithoutChecksums;
using quen::testing::CalibrationFolder;
using quen::testing::Fault;
using quen::testing::FaultyDisk;
using quen::testing::OpenDescriptors;
using quen::testing::Ramp;
using quen::testing::TempDir;

using Action = std::function<void(const std::string& path)>;

struct Path {
  const char* name;
  Action action;
  std::vector<std::string> texts;  ///< how its exceptions, all std::runtime_error, may start
};

std::ostream& operator<<(std::ostream& out, const Path& path) { return out << path.name; }

constexpr const char* kCreate = "Fits: Could not open/create ";
constexpr const char* kWriteImage = "Fits: Error writing image: ";
constexpr const char* kCreateTable = "Fits: Could not create table, details: ";
constexpr const char* kWriteColumn = "Fits: Error writing column ";
constexpr const char* kOpen = "Fits: Could not open ";

std::exception_ptr Thrown(const std::function<void()>& action) {
  try {
    action();
  } catch (...) {
    return std::current_exception();
  }
  return nullptr;
}

/// How an exception's text starts, of those that the path allows; nothing if there was none.
std::string Start(const std::exception_ptr& thrown, const Path& path) {
  if (thrown == nullptr) return {};
  try {
    std::rethrow_exception(thrown);
  } catch (const std::exception& error) {
    EXPECT_EQ(typeid(error), typeid(std::runtime_error)) << error.what();
    for (const std::string& text : path.texts) {
      if (std::string_view(error.what()).starts_with(text)) return text;
    }
    ADD_FAILURE() << "not a documented text: " << error.what();
    return error.what();
  }
}

/// Runs the path's action; how its exception's text starts, or nothing.
std::string Outcome(const Path& path, const std::string& file) {
  return Start(Thrown([&] { path.action(file); }), path);
}

/// Reports the place of the reference as measured.
class Still : public image_processing::Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> /*frame*/, const image_processing::Roi& /*roi*/) override {
    flux = 1.0;
    x = 0.25;
    y = -0.25;
  }
};

ShsSimulator& Simulator() {
  static ShsSimulator simulator = [] {
    const CalibrationFolder folder;
    return ShsSimulator();
  }();
  return simulator;
}

// --- Writing -------------------------------------------------------------------------------------------------------

void WriteFrame(const std::string& path) {
  Simulator().ComputeFrame(std::vector<double>(1089, 0.5), std::vector<double>(1089, 0.5), 0.0, path);
}

void WriteSlopes(const std::string& path) {
  Still engine;
  Simulator().ComputeSlopes(engine, 4.0, path);
}

/// More than CFITSIO's buffers hold, so that writes happen before the release too.
void WriteLongTable(const std::string& path) {
  const Handle file = FitsFileWrite(path, false, "long");
  WriteTable(file, {{"value", "D"}});
  const std::vector<double> values = Ramp(40'000);
  for (int row = 1; row <= 40'000; row += 400) {
    WriteColumnPriv(file, values.data() + row - 1, 400, TDOUBLE, 1, row);
  }
}

const std::vector<Path>& Writing() {
  static const std::vector<Path> paths = {{"frame", WriteFrame, {kCreate, kWriteImage}},
                                          {"slopes", WriteSlopes, {kCreate, kCreateTable, kWriteColumn}},
                                          {"long table", WriteLongTable, {kCreate, kCreateTable, kWriteColumn}}};
  return paths;
}

class WritingFault : public ::testing::TestWithParam<std::tuple<Path, Fault>> {};

TEST_P(WritingFault, EveryWriteMayFail) {
  constexpr std::size_t kCheckEvery = 16;  // writes; whether the next file is good
  const auto& [path, fault] = GetParam();
  const TempDir folder;
  Simulator();
  std::size_t writes = 0;
  {
    const FaultyDisk disk(fault, 0);
    path.action(folder / "good.fits");
    writes = FaultyDisk::Calls();
  }
  const std::vector<char> good = BytesWithoutChecksums(folder / "good.fits");
  ASSERT_GT(writes, 0U);
  ASSERT_EQ(testing::ComplaintsOfFitsverify(folder / "good.fits"), "");
  const std::size_t descriptors = OpenDescriptors();
  for (std::size_t nth = 1; nth <= writes; ++nth) {
    const std::string file = folder / ("fault" + std::to_string(nth) + ".fits");
    {
      const FaultyDisk disk(fault, nth);
      Outcome(path, file);
      EXPECT_GE(FaultyDisk::Calls(), nth);
    }
    ASSERT_EQ(OpenDescriptors(), descriptors) << "write " << nth;
    std::filesystem::remove(file);
    if (nth % kCheckEvery != 1) continue;
    EXPECT_EQ(Outcome(path, file), "") << "after write " << nth;
    EXPECT_TRUE(BytesWithoutChecksums(file) == good) << "after write " << nth;
    std::filesystem::remove(file);
  }
  std::cout << path << ", " << fault << ": " << writes << " calls failed, one by one\n";
}

INSTANTIATE_TEST_SUITE_P(AllPaths, WritingFault,
                         ::testing::Combine(::testing::ValuesIn(Writing()),
                                            ::testing::Values(Fault::kWriteError, Fault::kFullDisk)));

/// Another limit on one of this process's resources while it lives.
class ScopedLimit {
 public:
  ScopedLimit(__rlimit_resource resource, rlim_t value) : resource_(resource) {
    getrlimit(resource_, &old_);
    const rlimit limit = {value, old_.rlim_max};
    setrlimit(resource_, &limit);
  }
  ~ScopedLimit() { setrlimit(resource_, &old_); }
  ScopedLimit(const ScopedLimit&) = delete;
  ScopedLimit& operator=(const ScopedLimit&) = delete;
  ScopedLimit(ScopedLimit&&) = delete;
  ScopedLimit& operator=(ScopedLimit&&) = delete;

 private:
  __rlimit_resource resource_;
  rlimit old_{};
};

/// No file grows beyond this while it lives: writing on fails as on a full device, instead of ending the process.
class ScopedFileSizeLimit {
 public:
  explicit ScopedFileSizeLimit(rlim_t bytes) : limit_(RLIMIT_FSIZE, bytes) {
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  }

 private:
  ScopedLimit limit_;
};

TEST(FullDevice, AtAnySizeIsReportedOrComesAtRelease) {
  Simulator();
  const std::size_t descriptors = OpenDescriptors();
  for (const Path& path : Writing()) {
    const TempDir folder;
    path.action(folder / "good.fits");
    for (const rlim_t bytes : {0UL, 1000UL, 2880UL, 5760UL, 30'000UL, 100'000UL, 200'000UL, 1'000'000UL}) {
      const std::string file = folder / "a.fits";
      {
        const ScopedFileSizeLimit full(bytes);
        Outcome(path, file);
      }
      EXPECT_EQ(OpenDescriptors(), descriptors);
      std::filesystem::remove(file);
      EXPECT_EQ(Outcome(path, file), "") << path << " after " << bytes;
      EXPECT_TRUE(BytesWithoutChecksums(file) == BytesWithoutChecksums(folder / "good.fits"));
      std::filesystem::remove(file);
    }
  }
}

TEST(FullDevice, IsReportedForAFrame) {
  Simulator();
  const TempDir folder;
  const ScopedFileSizeLimit full(100'000);
  testing::ClearMessages();
  testing::ExpectThrowsWithDetails<std::runtime_error>(kWriteImage, [&] { WriteFrame(folder / "a.fits"); });
}

/// Without the superuser's rights while it lives, if this process has them.
class ScopedOrdinaryUser {
 public:
  ScopedOrdinaryUser() : own_(geteuid()) {
    constexpr uid_t kNobody = 65534;
    if (own_ == 0) Become(kNobody);
  }
  ~ScopedOrdinaryUser() { Become(own_); }
  ScopedOrdinaryUser(const ScopedOrdinaryUser&) = delete;
  ScopedOrdinaryUser& operator=(const ScopedOrdinaryUser&) = delete;
  ScopedOrdinaryUser(ScopedOrdinaryUser&&) = delete;
  ScopedOrdinaryUser& operator=(ScopedOrdinaryUser&&) = delete;

 private:
  static void Become(uid_t user) {
    if (seteuid(user) != 0) ADD_FAILURE() << "cannot become user " << user;
  }

  uid_t own_;
};

TEST(WritingFault, ReadOnlyFolderIsReported) {
  namespace fs = std::filesystem;
  Simulator();
  const TempDir folder;
  WriteSlopes(folder / "there.fits");
  fs::permissions(folder / "there.fits", fs::perms::owner_read | fs::perms::others_read);
  fs::permissions(folder.Path(), fs::perms(0555));
  const std::vector<char> before = testing::Bytes(folder / "there.fits");
  const std::size_t descriptors = OpenDescriptors();
  {
    const ScopedOrdinaryUser user;
    for (const Path& path : Writing()) {
      EXPECT_EQ(Outcome(path, folder / "new.fits"), kCreate) << path;
      EXPECT_EQ(Outcome(path, folder / "there.fits"), kCreate) << path;
    }
  }
  fs::permissions(folder.Path(), fs::perms::owner_all);
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(testing::Bytes(folder / "there.fits"), before);
}

/// Where not even the superuser can make a file.
TEST(WritingFault, FolderThatTakesNoFilesIsReported) {
  const std::size_t descriptors = OpenDescriptors();
  for (const Path& path : Writing()) EXPECT_EQ(Outcome(path, "/proc/self/fdinfo/a.fits"), kCreate) << path;
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(WritingFault, ParentThatIsAFileIsReported) {
  const TempDir folder;
  testing::WriteText(folder / "file", "kept");
  for (const Path& path : Writing()) {
    EXPECT_THROW(path.action(folder / "file/a.fits"), std::filesystem::filesystem_error) << path;
  }
  EXPECT_EQ(testing::Bytes(folder / "file"), (std::vector<char>{'k', 'e', 'p', 't'}));
}

TEST(WritingFault, FileRemovedWhileOpenStaysRemoved) {
  const TempDir folder;
  const std::size_t descriptors = OpenDescriptors();
  {
    const Handle file = FitsFileWrite(folder / "a.fits", true, std::nullopt);
    std::filesystem::remove(folder / "a.fits");
    const std::vector<double> values = Ramp(12);
    WriteImgPriv(file, values.data(), values.size(), DOUBLE_IMG, TDOUBLE, {4, 3});
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "a.fits"));
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(WritingFault, FileReplacedWhileOpenIsLeftAlone) {
  const TempDir folder;
  testing::WriteText(folder / "new", "new");
  {
    const Handle file = FitsFileWrite(folder / "a.fits", true, "t");
    std::filesystem::rename(folder / "new", folder / "a.fits");
    WriteTable(file, {{"value", "D"}});
  }
  EXPECT_EQ(testing::Bytes(folder / "a.fits"), (std::vector<char>{'n', 'e', 'w'}));
}

/// Between two of its tables the slope file is closed and opened again by name.
TEST(WritingFault, SlopeFileReplacedByOtherThingsIsReported) {
  const TempDir folder;
  testing::WriteText(folder / "a.fits", "no FITS");
  EXPECT_EQ(Outcome(Writing()[1], folder / "a.fits"), kCreate);
  EXPECT_EQ(testing::Bytes(folder / "a.fits").size(), 7U);
}

// --- Descriptors ---------------------------------------------------------------------------------------------------

/// The number that the next descriptor would get.
rlim_t LowestFreeDescriptor() {
  const int lowest = dup(0);
  close(lowest);
  return static_cast<rlim_t>(lowest);
}

TEST(DescriptorLimit, IsReportedAndNothingIsLost) {
  const CalibrationFolder calibration;
  const TempDir folder;
  WriteSlopes(folder / "there.fits");
  const std::vector<char> before = testing::Bytes(folder / "there.fits");
  const std::size_t descriptors = OpenDescriptors();
  std::vector<std::exception_ptr> thrown;
  std::exception_ptr thrown_there;
  std::exception_ptr thrown_by_reading;
  testing::ClearMessages();
  {
    const ScopedLimit none(
        RLIMIT_NOFILE, LowestFreeDescriptor());  // looking at an exception may take a descriptor: the sanitizer's does
    for (const Path& path : Writing()) {
      thrown.push_back(Thrown([&] { path.action(folder / "a.fits"); }));
    }
    thrown_there = Thrown([&] { WriteSlopes(folder / "there.fits"); });
    thrown_by_reading = Thrown([&] { FitsFile(calibration / "data/M2S.fits", std::nullopt); });
  }
  for (std::size_t i = 0; i < thrown.size(); ++i) EXPECT_EQ(Start(thrown[i], Writing()[i]), kCreate) << Writing()[i];
  EXPECT_EQ(Start(thrown_there, Writing()[1]), kCreate);
  EXPECT_EQ(Start(thrown_by_reading, {"reading", {}, {kOpen}}), kOpen);
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(testing::Bytes(folder / "there.fits"), before);
  const basesim::BaseSimulator works_again;
  for (const Path& path : Writing()) EXPECT_EQ(Outcome(path, folder / (std::string(path.name) + ".fits")), "");
}

// --- Reading -------------------------------------------------------------------------------------------------------

void ReadImage(const std::string& path) {
  const Handle file = FitsFile(path, std::nullopt);
  std::vector<double> values(60'000);
  ReadImgPriv(file, values.data(), values.size(), DOUBLE_IMG, TDOUBLE, {{100, 100, 6}});
  EXPECT_EQ(values, Ramp(60'000));
}

void ReadSlice(const std::string& path) {
  const Handle file = FitsFile(path, std::nullopt);
  std::vector<double> values(10'000);
  ReadImgSlicePriv(file, values.data(), values.size(), DOUBLE_IMG, TDOUBLE, 3);
  EXPECT_EQ(values, Ramp(10'000, 30'001.0));
  int axes = 0;
  ReadImgHeaderPriv(file, &axes, TINT, "NAXIS");
  EXPECT_EQ(axes, 3);
}

void ReadTable(const std::string& path) {
  const Handle file = FitsFile(path, "values");
  EXPECT_EQ(ReadColumnOrThrow<double>(file, "value"), Ramp(3'000));
}

void Load(const std::string& /*path*/) {
  const basesim::BaseSimulator simulator;
  const testing::Calibration made;
  EXPECT_EQ(simulator.M2s(), made.m2s.values);
  EXPECT_EQ(simulator.Cm(), made.cm.values);
  EXPECT_EQ(simulator.Rois().back().x_ref, made.rois.columns[2].values.back());
}

const std::vector<Path>& Reading() {
  static const std::vector<Path> paths = {
      {"image", ReadImage, {kOpen, "Fits: Error reading image: "}},
      {"slice", ReadSlice, {kOpen, "Fits: Error reading image slice: ", "Fits: Error getting the header key: NAXIS"}},
      {"table", ReadTable, {kOpen, "Fits: Error reading column \"value\": "}},
      {"calibration",
       Load,
       {"Simulator can not initialize: Fits: Could not open ",
        "Simulator can not initialize: Fits: Error reading image: ",
        "Simulator can not initialize: Fits: Error reading column \""}}};
  return paths;
}

class ReadingFault : public ::testing::TestWithParam<std::tuple<Path, Fault>> {};

TEST_P(ReadingFault, EveryReadMayFail) {
  const auto& [path, fault] = GetParam();
  const CalibrationFolder folder;
  const std::string file = folder / "input.fits";
  testing::WriteImage(file, DOUBLE_IMG, {100, 100, 6}, Ramp(60'000));
  testing::AppendTable(file, "values", 3'000, {{"value", "D", Ramp(3'000)}});
  std::size_t reads = 0;
  {
    const FaultyDisk disk(fault, 0);
    path.action(file);
    reads = FaultyDisk::Calls();
  }
  ASSERT_GT(reads, 0U);
  const std::size_t descriptors = OpenDescriptors();
  std::size_t reported = 0;
  for (std::size_t nth = 1; nth <= reads; ++nth) {
    {
      const FaultyDisk disk(fault, nth);
      if (!Outcome(path, file).empty()) ++reported;
      EXPECT_GE(FaultyDisk::Calls(), nth);
    }
    ASSERT_EQ(OpenDescriptors(), descriptors) << "read " << nth;
    EXPECT_EQ(Outcome(path, file), "") << "after read " << nth;
  }
  EXPECT_GT(reported, 0U);
  std::cout << path << ", " << fault << ": " << reads << " calls failed, one by one\n";
}

INSTANTIATE_TEST_SUITE_P(AllPaths, ReadingFault,
                         ::testing::Combine(::testing::ValuesIn(Reading()),
                                            ::testing::Values(Fault::kReadError, Fault::kShortRead)));

}  // namespace
}  // namespace quen::shssim
