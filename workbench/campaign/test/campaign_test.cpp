#include "workbench/campaign/campaign.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "workbench/campaign/seeds.hpp"

namespace {

using quen::workbench::Campaign;
using quen::workbench::OptionValue;
using quen::workbench::ParseCampaign;
using quen::workbench::SeedOfRun;

Campaign Parsed(const std::string& text) { return ParseCampaign("c", text, "/folder"); }

/// What is said of a campaign that is wrong.
std::string Refusal(const std::string& text) {
  try {
    Parsed(text);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

constexpr const char* kLoop = "verb = 'loop'\ncalibration = 's'\n";

std::string WithAxes(const std::string& axes) { return kLoop + ("[axes]\n" + axes + "\n"); }

std::string Nested(const std::string& piece, int times) {
  std::string text;
  for (int k = 0; k < times; ++k) text += piece;
  return text;
}

TEST(Campaign, PointsAreEveryCombinationTheLastAxisFirst) {
  const Campaign campaign = Parsed(
      "verb = 'loop'\ncalibration = 'sensor'\nframes = 20\nrepeats = 3\n"
      "[axes]\ngain = { from = 0.1, to = 0.3, step = 0.1 }\ndelay = [1, 2]\nengine = ['weighted', 'gaussian-fit']\n");
  EXPECT_EQ(campaign.Points(), 12U);
  EXPECT_EQ(campaign.Runs(), 36U);
  EXPECT_EQ(campaign.ValuesAt(0), (std::vector<OptionValue>{0.1, 1.0, "weighted"}));
  EXPECT_EQ(campaign.ValuesAt(1), (std::vector<OptionValue>{0.1, 1.0, "gaussian-fit"}));
  EXPECT_EQ(campaign.ValuesAt(2), (std::vector<OptionValue>{0.1, 2.0, "weighted"}));
  EXPECT_EQ(campaign.ValuesAt(11), (std::vector<OptionValue>{0.3, 2.0, "gaussian-fit"}));
  EXPECT_EQ(campaign.SettingsAt(11).delay, 2);
  EXPECT_EQ(campaign.SettingsAt(11).frames, 20);
  EXPECT_EQ(campaign.CommandOf(35),
            "quen-shs loop /folder/sensor --frames 20 --gain 0.3 --delay 2 --engine gaussian-fit --seed " +
                std::to_string(SeedOfRun(1, 35)));
}

TEST(Campaign, StepsAreDecimalNumbers) {
  const auto values = [](const std::string& axis) {
    const quen::workbench::Axis gain = Parsed(WithAxes("gain = " + axis)).axes.front();
    std::vector<double> all;
    all.reserve(gain.Size());
    for (std::uint64_t k = 0; k < gain.Size(); ++k) all.push_back(std::get<double>(gain.At(k)));
    return all;
  };
  EXPECT_EQ(values("{ from = 0.1, to = 0.9, step = 0.1 }"),
            (std::vector<double>{0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9}));
  EXPECT_EQ(values("{ from = 0.05, to = 1, step = 0.35 }"), (std::vector<double>{0.05, 0.4, 0.75}));
  EXPECT_EQ(values("{ from = 1e-12, to = 4e-12, step = 1e-12 }"), (std::vector<double>{1e-12, 2e-12, 3e-12, 4e-12}));
  // Of others each is the sum.
  EXPECT_EQ(values("{ from = 0.3333333333333333, to = 1, step = 0.1 }").at(2), 0.3333333333333333 + 2 * 0.1);
}

TEST(Campaign, JsonSaysTheSame) {
  const Campaign toml =
      Parsed("verb = 'score'\ncalibration = 's'\nseed = 7\nengine = 'weighted'\n[axes]\nnoise = [0, 10.5]\n");
  const Campaign json = Parsed(
      R"({"verb": "score", "calibration": "s", "seed": 7, "engine": "weighted", /* with comments */ "axes": {"noise": [0, 10.5]}})");
  EXPECT_EQ(Written(toml), Written(json));
  EXPECT_EQ(Written(Parsed(Written(toml))), Written(toml));
  EXPECT_EQ(Written(Parsed("\xEF\xBB\xBF" + Written(toml))), Written(toml)) << "after a mark of the bytes' order";
}

TEST(Campaign, AMillionPointsAreNotListed) {
  const Campaign campaign =
      Parsed(WithAxes("gain = { from = 0, to = 1, step = 0.001 }\nleak = { from = 0, to = 0.999, step = 0.001 }"));
  EXPECT_EQ(campaign.Points(), 1001U * 1000U);
  EXPECT_EQ(campaign.ValuesAt(campaign.Points() - 1), (std::vector<OptionValue>{1.0, 0.999}));
}

TEST(Campaign, SaysWhatIsWrongAndWhere) {
  const std::string options =
      "frames, gain, leak, delay, d-over-r0, disturbance, noise, detector, photons, background, em-gain, read-noise, "
      "pedestal, use-maps, engine";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "c: verb: expected one of loop, score, found none"},
      {"verb = 'view'", "c: verb: expected one of loop, score, found view"},
      {"verb = 3", "c: verb: expected a text, found 3"},
      {"verb = 'loop'", "c: calibration: expected a folder, found none"},
      {"verb = 'loop'\ncalibration = ''", "c: calibration: expected a folder, found "},
      {"verb = 'loop'\ncalibration = \"a\\u0000b\"", "c: calibration: expected a folder, found a?b"},
      {kLoop + std::string("gian = 0.5"), "c: gian: expected an option of loop (" + options + "), found gian"},
      {kLoop + std::string("gain = 3"), "c: gain: expected a number from 0 to 2, found 3"},
      {kLoop + std::string("gain = nan"), "c: gain: expected a number from 0 to 2, found nan"},
      {kLoop + std::string("gain = 'high'"), "c: gain: expected a number from 0 to 2, found high"},
      {kLoop + std::string("gain = [1, 2]"), "c: gain: expected a number, a text, or true or false, found a list"},
      {kLoop + std::string("gain = 2026-01-01"),
       "c: expected numbers and texts, found a date or a time at line 3, column 8"},
      {kLoop + std::string("frames = 12.5"), "c: frames: expected a whole number from 10 to 100000, found 12.5"},
      {kLoop + std::string("use-maps = 1"), "c: use-maps: expected true or false, found 1"},
      {kLoop + std::string("use-maps = true"), "c: use-maps: expected detector with it, found none"},
      {kLoop + std::string("engine = 'best'"),
       "c: engine: expected one of centre-of-gravity, windowed, weighted, brightest, quad-cell, correlation, "
       "gaussian-fit, maximum-likelihood, found best"},
      {kLoop + std::string("engine = 'weighted:fwhm=-1'"), "c: engine: weighted: fwhm must be from 1 to 100, found -1"},
      {kLoop + std::string("repeats = 0"), "c: repeats: expected a whole number from 1 to 1000000000, found 0"},
      {kLoop + std::string("repeats = nan"), "c: repeats: expected a whole number from 1 to 1000000000, found nan"},
      {kLoop + std::string("seed = -1"), "c: seed: expected a whole number from 0 to 4294967295, found -1"},
      {kLoop + std::string("noise = 1\nphotons = 5"), "c: noise, photons: expected one of the two, found both"},
      {kLoop + std::string("axes = 3"), "c: axes: expected a table of axes, found 3"},
      {WithAxes("gain = []"), "c: axes.gain: expected a value or more, found none"},
      {WithAxes("gain = 0.5"), "c: axes.gain: expected a list of values, or { from, to, step }, found 0.5"},
      {WithAxes("gain = [0.5, 0.7, 0.5]"), "c: axes.gain[2]: expected each value once, found 0.5 twice"},
      {WithAxes("gain = [0.5, 'a']"), "c: axes.gain[1]: expected a number from 0 to 2, found a"},
      {WithAxes("seed = [1, 2]"), "c: axes.seed: expected an option of loop (" + options + "), found seed"},
      {WithAxes("gain = { from = 0, to = 1 }"), "c: axes.gain: expected step, found none"},
      {WithAxes("gain = { from = 0, to = 1, step = 0 }"),
       "c: axes.gain.step: expected a finite number above 0, found 0"},
      {WithAxes("gain = { from = 0, to = 1, step = nan }"),
       "c: axes.gain.step: expected a finite number above 0, found nan"},
      {WithAxes("gain = { from = 0, to = 1, step = inf }"),
       "c: axes.gain.step: expected a finite number above 0, found inf"},
      {WithAxes("gain = { from = 1, to = 0, step = 1 }"), "c: axes.gain: expected from <= to, found 1 and 0"},
      {WithAxes("gain = { from = 0, to = 3, step = 1 }"), "c: axes.gain.to: expected a number from 0 to 2, found 3"},
      {WithAxes("gain = { from = 0, to = 1, stop = 1 }"), "c: axes.gain: expected from, to and step, found stop"},
      {WithAxes("gain = { from = 0, to = 1, step = 1e-12 }"),
       "c: axes.gain: expected 1000000000 values at most, found 1e+12"},
      {WithAxes("gain = { from = 1, to = 1.0000000000000002, step = 1e-17 }"),
       "c: axes.gain.step: expected a step that changes the value, found 1e-17"},
      {WithAxes("delay = { from = 1, to = 2, step = 0.5 }"),
       "c: axes.delay.step: expected a whole number from 1 to 9, found 1.5"},
      {WithAxes("gain = { from = 0, to = 1, step = 1e-6 }\nleak = { from = 0, to = 1, step = 1e-6 }"),
       "c: axes: expected 1000000000 runs at most, the repeats of all points, found 1e+12"},
      {"verb = 'loop'\ncalibration = 's'\ngain = 1\n[axes]\ngain = [1]",
       "c: axes.gain: expected an option or an axis, found both"},
      {"verb = 'score'\ncalibration = 's'", "c: engine: expected a value, or an axis of values, found neither"},
      {R"({"verb": "loop", "verb": "loop"})", "c: expected verb once, found it twice"},
      {R"({"verb": "loop")", "c: expected a campaign in TOML or JSON, found something else at line 1, column 16"},
      {R"({"verb": 1e999})", "c: expected numbers of magnitude 1.8e308 at most, found a larger one"},
      {"[" + Nested("a.", 8000) + "a]", "c: expected fewer lists in lists, found too many"},
      {"verb" + Nested(".a", 8000) + " = 3", "c: expected fewer lists in lists, found too many"},
      {std::string(16385, '\n'), "c: expected TOML of 16384 bytes at most, found 16385; a longer campaign may be JSON"},
      {std::string(2000000, ' '), "c: expected a campaign of 1048576 bytes at most, found 2000000"}};
  for (const auto& [text, refusal] : cases) EXPECT_EQ(Refusal(text), refusal) << text.substr(0, 200);
  EXPECT_TRUE(
      Refusal("verb = ").starts_with("c: expected a campaign in TOML or JSON, found something else at line 1, "));
  EXPECT_NE(Refusal(std::string(100000, '[')), "");
  EXPECT_NE(Refusal("{\"a\":" + std::string(100000, '[')), "");
  EXPECT_NE(Refusal(std::string("\0\xFF", 2)), "");
}

// --- Seeds

/// Seeds of some runs, sorted.
std::vector<std::uint32_t> Seeds(std::uint32_t campaign_seed, std::uint64_t first, std::uint64_t runs) {
  std::vector<std::uint32_t> seeds;
  for (std::uint64_t run = first; run < first + runs; ++run) seeds.push_back(SeedOfRun(campaign_seed, run));
  std::ranges::sort(seeds);
  return seeds;
}

TEST(Campaign, NoTwoRunsHaveTheSameSeed) {
  constexpr std::uint64_t kRuns = 1U << 20U;
  for (const std::uint32_t campaign_seed : {0U, 1U, 4294967295U}) {
    for (const std::uint64_t first : {std::uint64_t{0}, quen::workbench::kSeeds - kRuns}) {
      const std::vector<std::uint32_t> seeds = Seeds(campaign_seed, first, kRuns);
      EXPECT_EQ(std::ranges::adjacent_find(seeds), seeds.end()) << campaign_seed << ", " << first;
    }
  }
}

TEST(Campaign, SeedsOfTwoCampaignsHaveNothingInCommon) {
  constexpr std::uint64_t kRuns = 100000;
  std::vector<std::uint32_t> common;
  std::ranges::set_intersection(Seeds(1, 0, kRuns), Seeds(2, 0, kRuns), std::back_inserter(common));
  // 10^10 / 2^32 are expected, 2.3; more than 15 with a probability of 10^-8.
  EXPECT_LE(common.size(), 15U);
}

TEST(Campaign, SeedsStayWhatTheyAre) {
  EXPECT_EQ(SeedOfRun(1, 0), 354513798U);
  EXPECT_EQ(SeedOfRun(1, 1), 3887738791U);
  EXPECT_EQ(SeedOfRun(7, 123456789), 2571596194U);
}

}  // namespace
