#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <thread>

#include "common/fits/fits.hpp"
#include "common/random/random.hpp"
#include "shssim/test/simulator_under_test.hpp"
#include "testing/calibration.hpp"
#include "testing/environment.hpp"

// The simulator at full speed for as long as QUEN_SOAK_SECONDS says, five seconds if it says nothing: memory,
// descriptors and results at the end as at the start. And many simulators at once.

namespace quen::shssim {
namespace {

using quen::common::random::detail::MersenneTwisterEngine;
using quen::testing::CalibrationFolder;
using quen::testing::OpenDescriptors;
using quen::testing::RandomNumbers;
using quen::testing::TempDir;
using Clock = std::chrono::steady_clock;

constexpr double kNoise = 10.0;
constexpr double kSlopeLimit = 5.0;

#if defined(QUEN_SANITIZED)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

double Seconds() {
  const char* const asked = std::getenv("QUEN_SOAK_SECONDS");
  return asked == nullptr ? 5.0 : std::stod(asked);
}

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// Seconds of processor time that this process has used: unlike the clock's, not those of its neighbours.
double ProcessorSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

/// Bytes of memory that this process holds.
std::size_t ResidentMemory() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// Light and centre of gravity, over all pixels of the region.
class CentreOfGravity : public image_processing::Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) override {
    double sum = 0.0;
    double sum_x = 0.0;
    double sum_y = 0.0;
    for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
      for (std::size_t column = roi.x_low; column < roi.x_up; ++column) {
        const auto light = static_cast<double>(static_cast<std::int16_t>(frame[testing::Index(column, row)]));
        sum += light;
        sum_x += light * static_cast<double>(column);
        sum_y += light * static_cast<double>(row);
      }
    }
    flux = sum;
    x = sum_x / sum - roi.x_ref;
    y = sum_y / sum - roi.y_ref;
  }
};

/// What one frame and its measurement come to, as a number that another frame does not come to.
double Fingerprint(const ShsSimulator& simulator) {
  double sum = 0.0;
  double weight = 1.0;
  for (const double slope : simulator.Slopes()) sum += slope * (weight += 0.37);
  for (const double light : simulator.FluxUsed()) sum += light * (weight += 0.11);
  return sum;
}

double Render(ShsSimulator& simulator, std::uint32_t number, const std::optional<std::string>& frame = std::nullopt,
              const std::optional<std::string>& slopes = std::nullopt) {
  CentreOfGravity engine;
  simulator.ComputeFrame(RandomNumbers(1089, 2.0, number), RandomNumbers(1089, 2.0, ~number), kNoise, frame);
  simulator.ComputeSlopes(engine, kSlopeLimit, slopes);
  return Fingerprint(simulator);
}

struct Mark {
  std::uint32_t number;
  std::mt19937 generator;
  double fingerprint;
};

TEST(Soak, FramesAtFullSpeedLeaveNoTrace) {
  constexpr std::uint32_t kMarkEvery = 500;
  constexpr std::size_t kMostMarks = 200;
  constexpr std::size_t kMemoryRoom = 2'000'000;  // bytes: the marks, and pages of the allocator
  const CalibrationFolder calibration;
  const TempDir results;
  ShsSimulator simulator;
  std::vector<Mark> marks;
  marks.reserve(kMostMarks);
  std::vector<double> rates;

  const double seconds = Seconds();
  const auto start = Clock::now();
  std::size_t memory = 0;
  std::size_t descriptors = 0;
  std::uint32_t number = 0;
  for (int tenth = 1; tenth <= 10; ++tenth) {
    const std::uint32_t first = number;
    const double begin = ProcessorSeconds();
    do {
      const bool marked = number % kMarkEvery == 0;
      const std::mt19937 generator = MersenneTwisterEngine();
      const double fingerprint = marked ? Render(simulator, number, results / "frame.fits", results / "slopes.fits")
                                        : Render(simulator, number);
      if (marked) std::filesystem::remove(results / "slopes.fits");
      if (marked && marks.size() < kMostMarks) marks.push_back({number, generator, fingerprint});
      ++number;
    } while (Since(start) < seconds * tenth / 10.0);
    rates.push_back((number - first) / (ProcessorSeconds() - begin));
    if (tenth == 1) {
      memory = ResidentMemory();
      descriptors = OpenDescriptors();
    }
  }
  std::printf(
      "%u frames in %.0f s; frames per second of processor time in the first tenth %.0f, in the last %.0f; memory %zu "
      "kB after the first "
      "tenth, %zu kB at the end\n",
      number, Since(start), rates.front(), rates.back(), memory / 1000, ResidentMemory() / 1000);

  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_TRUE(kSanitized || ResidentMemory() < memory + kMemoryRoom) << ResidentMemory();
  EXPECT_GT(rates.back(), 0.5 * rates.front());  // a leak of time, not a measurement of speed
  for (const Mark& mark : marks) {
    MersenneTwisterEngine() = mark.generator;
    ASSERT_EQ(Render(simulator, mark.number), mark.fingerprint) << "frame " << mark.number;
  }
}

// --- Many at once --------------------------------------------------------------------------------------------------

constexpr std::uint32_t kFramesPerRound = 3;

/// A whole life of a simulator: made, three frames, their files, gone.
std::vector<double> Round(const std::string& folder, std::uint32_t seed) {
  std::vector<double> fingerprints;
  ShsSimulator simulator;
  MersenneTwisterEngine().seed(seed);
  for (std::uint32_t frame = 0; frame < kFramesPerRound; ++frame) {
    std::filesystem::remove(folder + "/slopes.fits");
    fingerprints.push_back(Render(simulator, seed + frame, folder + "/frame.fits", folder + "/slopes.fits"));
  }
  return fingerprints;
}

bool IsWellFormed(const std::string& text, const std::string& start) {
  return text.starts_with(start) &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= ' ' || c == '\n'; });
}

/// Fails to open a file that is not there; whether the text is as it should be. What CFITSIO has queued for failures of
/// other threads may be in it.
bool FailsWell(const std::string& path) {
  try {
    common::Fits::FitsFile(path, std::nullopt);
  } catch (const std::runtime_error& error) {
    return IsWellFormed(error.what(), "Fits: Could not open " + path + ", details: could not open the named file, ");
  }
  return false;
}

TEST(Soak, ManySimulatorsInManyThreadsGiveWhatOneGives) {
  constexpr std::uint32_t kThreads = 8;
  const CalibrationFolder calibration;
  const TempDir folder;
  std::vector<std::vector<double>> expected;
  std::vector<std::vector<char>> frames;
  for (std::uint32_t k = 0; k < kThreads; ++k) {
    const std::string own = folder / std::to_string(k);
    std::filesystem::create_directory(own);
    expected.push_back(Round(own, 1000 * k));
    frames.push_back(testing::BytesWithoutChecksums(own + "/frame.fits"));
  }
  const std::size_t descriptors = OpenDescriptors();

  const double seconds = Seconds();
  const auto start = Clock::now();
  std::atomic<int> rounds = 0;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (std::uint32_t k = 0; k < kThreads; ++k) {
    threads.emplace_back([&, k] {
      const std::string own = folder / std::to_string(k);
      do {
        if (Round(own, 1000 * k) != expected[k]) ++wrong;
        if (testing::BytesWithoutChecksums(own + "/frame.fits") != frames[k]) ++wrong;
        for (int failure = 0; failure < 20; ++failure) {
          if (!FailsWell(own + "/none.fits")) ++wrong;
        }
        ++rounds;
      } while (Since(start) < seconds);
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::printf("%d simulators in %u threads, %.0f s\n", rounds.load(), kThreads, Since(start));
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

/// All threads fail at the same moment, again and again.
TEST(Soak, FailuresOfTheSameMomentHaveWellFormedTexts) {
  constexpr int kThreads = 8;
  constexpr int kFailures = 200;
  const TempDir folder;
  std::atomic<int> wrong = 0;
  std::barrier at_once(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int k = 0; k < kThreads; ++k) {
    threads.emplace_back([&, k] {
      for (int failure = 0; failure < kFailures; ++failure) {
        at_once.arrive_and_wait();
        if (!FailsWell(folder / (std::to_string(k) + ".fits"))) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace quen::shssim
