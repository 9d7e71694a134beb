#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

#include "common/random/random.hpp"
#include "shssim/shs_simulator.hpp"
#include "testing/calibration.hpp"
#include "testing/exceptions.hpp"

// The entropy source, under the test's control: this test stands in for the standard library's.

namespace {

using quen::common::random::detail::MersenneTwisterEngine;
using quen::common::random::detail::s_random;
using quen::testing::ExpectThrows;

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): the stand-in has nowhere else to look.
std::string g_token;
int g_values_taken = 0;
int g_devices_open = 0;
bool g_fails = false;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

/// Its regions are all empty.
class Blind : public quen::shssim::ShsSimulator {
 public:
  Blind() {
    for (quen::image_processing::Roi& roi : rois) roi.x_up = roi.x_low;
  }
};

class EntropySource : public ::testing::Test {
 protected:
  EntropySource() {
    g_token.clear();
    g_values_taken = 0;
    g_devices_open = 0;
    g_fails = false;
  }
};

TEST_F(EntropySource, GivesOneValueWhichSeedsTheGenerator) {
  std::thread([] {
    EXPECT_TRUE(MersenneTwisterEngine() == std::mt19937(4242));
    MersenneTwisterEngine().discard(5000);
  }).join();
  EXPECT_EQ(g_token, "default");
  EXPECT_EQ(g_values_taken, 1);
  EXPECT_EQ(g_devices_open, 0);
}

TEST_F(EntropySource, FailureLeavesTheFirstAccessAndNoDeviceOpen) {
  std::thread([] {
    g_fails = true;
    ExpectThrows<std::runtime_error>("no entropy", [] { MersenneTwisterEngine(); });
    EXPECT_EQ(g_devices_open, 0);
  }).join();
}

TEST_F(EntropySource, NextAccessAfterAFailureSeedsTheGenerator) {
  std::thread([] {
    for (int failure = 0; failure < 2; ++failure) {
      g_fails = true;
      ExpectThrows<std::runtime_error>("no entropy", [] { MersenneTwisterEngine(); });
    }
    g_fails = false;
    EXPECT_TRUE(MersenneTwisterEngine() == std::mt19937(4242));
    EXPECT_EQ(g_values_taken, 1);
    MersenneTwisterEngine().discard(1);
    EXPECT_FALSE(MersenneTwisterEngine() == std::mt19937(4242));  // and not again
  }).join();
}

TEST_F(EntropySource, FailureByTheGeneratorsOwnNameIsMadeUpForToo) {
  std::thread([] {
    g_fails = true;
    ExpectThrows<std::runtime_error>("no entropy", [] { s_random.discard(1); });
    g_fails = false;
    EXPECT_TRUE(MersenneTwisterEngine() == std::mt19937(4242));
    EXPECT_TRUE(s_random == std::mt19937(4242));
  }).join();
}

TEST_F(EntropySource, FailureDoesNotMatterWhereNoPixelIsDrawn) {
  std::thread([] {
    const quen::testing::CalibrationFolder folder;
    Blind simulator;
    const std::vector<double> still(1089);
    g_fails = true;
    EXPECT_NO_THROW(simulator.ComputeFrame(still, still, -1.0));
  }).join();
}

TEST_F(EntropySource, FailureLeavesComputeFrame) {
  std::thread([] {
    const quen::testing::CalibrationFolder folder;
    quen::shssim::ShsSimulator simulator;
    const std::vector<double> still(1089);
    g_fails = true;
    ExpectThrows<std::runtime_error>("no entropy", [&] { simulator.ComputeFrame(still, still, 0.0, std::nullopt); });
  }).join();
}

}  // namespace

// NOLINTBEGIN(readability-convert-member-functions-to-static): declared by the standard library.
void std::random_device::_M_init(const std::string& token) {
  g_token = token;
  ++g_devices_open;
}

void std::random_device::_M_fini() { --g_devices_open; }

std::random_device::result_type std::random_device::_M_getval() {
  if (g_fails) throw std::runtime_error("no entropy");
  ++g_values_taken;
  return 4242;
}
// NOLINTEND(readability-convert-member-functions-to-static)
