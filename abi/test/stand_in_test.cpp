#include <gtest/gtest.h>

#include "common/filesystem/filesystem.hpp"
#include "common/logging/logging.hpp"
#include "pim/helper.hpp"
#include "quen_image_processing/roi/roi.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/recording_appender.hpp"

// A host that brings the framework's lookup and the product's logging facility itself: the library uses the host's.

namespace {

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): a static function has nowhere else to look.
std::vector<std::string> g_looked_up;
std::string g_answer;
bool g_lookup_fails = false;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace

std::string pim::Helper::FindFile(const std::string& name) {
  g_looked_up.push_back(name);
  if (g_lookup_fails) throw std::domain_error("lookup failed");
  return g_answer;
}

log4cplus::Logger quen::common::GetLogger() { return log4cplus::Logger::getInstance("host"); }

namespace {

using quen::common::FileSystem::FindFile;
using quen::common::FileSystem::FindFileOrThrow;
using quen::testing::ScopedVariable;

class HostsLookup : public ::testing::Test {
 protected:
  HostsLookup() {
    g_looked_up.clear();
    g_answer.clear();
    g_lookup_fails = false;
  }
  ScopedVariable introot_{"INTROOT", ""};
};

TEST_F(HostsLookup, ItsAnswerIsTakenUntested) {
  g_answer = "/nowhere/at/all";
  EXPECT_EQ(FindFile("data/CM.fits", {}), "/nowhere/at/all");
  EXPECT_EQ(g_looked_up, std::vector<std::string>{"data/CM.fits"});
}

TEST_F(HostsLookup, ItsRelativeAnswerIsMadeAbsolute) {
  g_answer = "x/../y";
  EXPECT_EQ(FindFile("data/CM.fits", {}), std::filesystem::current_path().string() + "/x/../y");
}

TEST_F(HostsLookup, IsAskedOncePerSearchWithTheNameUnchanged) {
  EXPECT_THROW(FindFileOrThrow("./no//such", {"/tmp"}), std::runtime_error);
  EXPECT_EQ(g_looked_up, std::vector<std::string>{"./no//such"});
}

TEST_F(HostsLookup, ItsErrorsPassUnchanged) {
  g_lookup_fails = true;
  quen::testing::ExpectThrows<std::domain_error>("lookup failed", [] { FindFile("x", {}); });
  quen::testing::ExpectThrows<std::domain_error>("lookup failed", [] { FindFileOrThrow("x", {}); });
}

TEST(HostsLogger, ReceivesTheLibrarysRecords) {
  const quen::testing::LogListener log(log4cplus::Logger::getInstance("host"));
  EXPECT_THROW(quen::image_processing::Roi(2, 1, 0, 0, 9, 9, 0, 0), std::invalid_argument);
  EXPECT_EQ(log.Records().size(), 1U);
}

}  // namespace
