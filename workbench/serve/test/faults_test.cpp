#include "workbench/serve/faults.hpp"

#include <gtest/gtest.h>

#include <set>

#include "testing/exceptions.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/serve/pixel_faults.hpp"

namespace quen::workbench {
namespace {

using quen::testing::ExpectThrows;

std::vector<Fault> Read(const std::string& text) { return ReadFaults(InputFile::InMemory("faults.json", text)); }

std::vector<FaultKind> KindsAt(FaultScript& script, std::uint64_t frame) {
  std::vector<FaultKind> kinds;
  for (const Fault& fault : script.At(frame)) kinds.push_back(fault.kind);
  return kinds;
}

using Kinds = std::vector<FaultKind>;

TEST(Faults, RulesAreInTheOrderOfTheKinds) {
  std::set<std::string> names;
  for (std::size_t k = 0; k < FaultRules().size(); ++k) {
    EXPECT_EQ(FaultRules()[k].kind, static_cast<FaultKind>(k));
    EXPECT_LE(FaultRules()[k].parameters.size(), kMostFaultParameters);
    names.insert(FaultRules()[k].name);
  }
  EXPECT_EQ(names.size(), 17U);
}

TEST(Faults, ScriptIsRead) {
  const auto faults = Read(R"([{"frame": 100, "kind": "late", "milliseconds": 2.5},  // a comment
                               {"kind": "lost", "frame": 7, "subaperture": 1088, "frames": 3},
                               {"frame": 9, "kind": "shift", "columns": -2}])");
  ASSERT_EQ(faults.size(), 3U);
  EXPECT_EQ(faults[0].frame, 100U);
  EXPECT_EQ(InWords(faults[0]), "late milliseconds=2.5");
  EXPECT_EQ(InWords(faults[1]), "lost subaperture=1088 frames=3");
  EXPECT_EQ(InWords(faults[2]), "shift rows=0 columns=-2 frames=1");
  EXPECT_TRUE(Read("[]").empty());
}

TEST(Faults, WrongScriptIsRefusedWithOneSentence) {
  const auto expect = [](const std::string& reason, const std::string& text) {
    ExpectThrows<std::runtime_error>("faults.json: " + reason, [&] { Read(text); });
  };
  expect("expected a list of faults, [{\"frame\": 100, \"kind\": \"drop\"}, ...]", "{}");
  expect("fault 1 (counted from 0): expected an object {frame, kind, ...}, found 3",
         R"([{"frame":1,"kind":"drop"},3])");
  expect("fault 0 (counted from 0): frame: expected a whole number from 0 to 1e+15, found null",
         R"([{"kind":"drop"}])");
  expect("fault 0 (counted from 0): frame: expected a whole number from 0 to 1e+15, found 1.5",
         R"([{"kind":"drop","frame":1.5}])");
  expect("fault 0 (counted from 0): milliseconds: expected a number from 0 to 3600000, found -1",
         R"([{"kind":"late","frame":1,"milliseconds":-1}])");
  expect("fault 0 (counted from 0): milliseconds: expected a number from 0 to 3600000, found null",
         R"([{"kind":"late","frame":1}])");
  expect("fault 0 (counted from 0): delay: expected only frame, kind, milliseconds, which late has",
         R"([{"kind":"late","frame":1,"milliseconds":1,"delay":1}])");
  expect("fault 0 (counted from 0): expected a region within 840 x 816 pixels, found one that goes beyond",
         R"([{"kind":"stuck","frame":1,"x":800,"y":0,"width":41,"height":1}])");
  expect(
      "fault 0 (counted from 0): kind: expected one of drop, repeat, late, twice, freeze, pause, tear, counter, dark, "
      "saturate, stuck, shift, cosmic, bitflip, lost, burst, remake, found \"dance\"",
      R"([{"kind":"dance","frame":1}])");
  EXPECT_THROW(Read("[{"), std::runtime_error);
}

TEST(FaultScript, HitsItsFramesAsLongAsItSays) {
  FaultScript script(
      Read(R"([{"frame":5,"kind":"dark","frames":2},{"frame":2,"kind":"drop"},{"frame":6,"kind":"twice"}])"), 0.0);
  EXPECT_EQ(KindsAt(script, 0), Kinds());
  EXPECT_EQ(KindsAt(script, 1), Kinds());
  EXPECT_EQ(KindsAt(script, 2), Kinds{FaultKind::kDrop});
  EXPECT_EQ(KindsAt(script, 3), Kinds());
  EXPECT_EQ(KindsAt(script, 5), Kinds{FaultKind::kDark});
  EXPECT_EQ(KindsAt(script, 6), (Kinds{FaultKind::kDark, FaultKind::kTwice}));
  EXPECT_EQ(KindsAt(script, 7), Kinds());
}

TEST(FaultScript, OnesOfSkippedFramesHitTheNext) {
  FaultScript script(Read(R"([{"frame":2,"kind":"drop"},{"frame":3,"kind":"dark","frames":2}])"), 0.0);
  EXPECT_EQ(KindsAt(script, 1), Kinds());
  EXPECT_EQ(KindsAt(script, 9), (Kinds{FaultKind::kDrop, FaultKind::kDark}));
  EXPECT_EQ(KindsAt(script, 10), Kinds{FaultKind::kDark});
  EXPECT_EQ(KindsAt(script, 11), Kinds());
}

TEST(FaultScript, PauseTakesTheFramesThatFallIntoIt) {
  FaultScript script(Read(R"([{"frame":1,"kind":"pause","milliseconds":2.1}])"), 1000.0);
  std::vector<std::size_t> found;
  for (std::uint64_t k = 0; k < 6; ++k) found.push_back(script.At(k).size());
  EXPECT_EQ(found, (std::vector<std::size_t>{0, 1, 1, 1, 0, 0}));
}

TEST(FaultScript, RandomOnesRepeatByTheirSeedWhateverIsSkipped) {
  const auto told = [](FaultScript script, std::uint64_t step) {
    std::vector<std::string> words;
    std::set<std::string> seen;
    for (std::uint64_t frame = step; frame <= 2000; frame += step) {
      for (const Fault& fault : script.At(frame)) {
        const std::string one = InWords(fault) + " " + std::to_string(fault.frame);
        if (seen.insert(one).second) words.push_back(one);
      }
    }
    return words;
  };
  const auto all = told(FaultScript(ParseRandomFaults("random:7:0.1"), 0.0), 1);
  EXPECT_EQ(told(FaultScript(ParseRandomFaults("random:7:0.1"), 0.0), 4), all);
  EXPECT_NE(told(FaultScript(ParseRandomFaults("random:8:0.1"), 0.0), 1), all);
  EXPECT_NEAR(static_cast<double>(all.size()), 200.0, 6.0 * 13.4);
  EXPECT_TRUE(told(FaultScript(ParseRandomFaults("random:7:0"), 0.0), 1).empty());
  EXPECT_EQ(told(FaultScript(ParseRandomFaults("random:7:1"), 0.0), 1).size(), 2001U);
}

TEST(FaultScript, RandomOnesAreWithinTheLimitsOfTheirKind) {
  FaultScript script(RandomFaults{3, 1.0}, 0.0);
  std::set<FaultKind> kinds;
  for (std::uint64_t frame = 0; frame < 2000; ++frame) {
    for (const Fault& fault : script.At(frame)) {
      kinds.insert(fault.kind);
      for (const FaultParameter& parameter : FaultRules()[static_cast<std::size_t>(fault.kind)].parameters) {
        EXPECT_TRUE(parameter.limits.Contain(fault.Value(parameter.name))) << InWords(fault);
      }
    }
  }
  EXPECT_EQ(kinds.size(), FaultRules().size());
}

TEST(RandomFaults, AreWrittenAsRandomSeedShare) {
  EXPECT_EQ(ParseRandomFaults("random:12:0.25").seed, 12U);
  EXPECT_EQ(ParseRandomFaults("random:12:0.25").share, 0.25);
  for (const char* const text : {"random:", "random:1", "random:1:", "random:1:2", "random:-1:0", "random:1.5:0"}) {
    EXPECT_THROW(ParseRandomFaults(text), std::invalid_argument) << text;
  }
}

// --- Pixels

using Pixels = std::vector<std::uint16_t>;

/// A frame whose pixels all differ from their neighbours'.
Pixels Ramp(std::uint16_t first) {
  Pixels pixels(kFrameWidth * kFrameHeight);
  for (std::size_t k = 0; k < pixels.size(); ++k) pixels[k] = static_cast<std::uint16_t>(first + k % 30011);
  return pixels;
}

/// What becomes of the second of two frames.
Pixels Second(const std::string& fault, const PixelLimits& range = {32767, true, 1.0}) {
  PixelFaults faults(range);
  faults.Apply(Ramp(0), {}, 0);
  const auto read = Read("[" + fault + "]");
  const auto result = faults.Apply(Ramp(1000), read, 1);
  return {result.begin(), result.end()};
}

TEST(PixelFaults, OthersLeaveTheFrameAsItIs) {
  for (const char* const kind : {"drop", "twice", "dark", "remake"}) {
    EXPECT_EQ(Second("{\"frame\":1,\"kind\":\"" + std::string(kind) + "\"}"), Ramp(1000)) << kind;
  }
}

TEST(PixelFaults, FrozenAndRepeatedFramesAreTheOneBefore) {
  EXPECT_EQ(Second(R"({"frame":1,"kind":"freeze"})"), Ramp(0));
  EXPECT_EQ(Second(R"({"frame":1,"kind":"repeat"})"), Ramp(0));
}

TEST(PixelFaults, TornFrameIsNewAbove) {
  Pixels expected = Ramp(1000);
  const Pixels old = Ramp(0);
  constexpr std::ptrdiff_t kRows = 100L * 840L;
  std::copy(old.begin() + kRows, old.end(), expected.begin() + kRows);
  EXPECT_EQ(Second(R"({"frame":1,"kind":"tear","rows":100})"), expected);
}

TEST(PixelFaults, SaturatedPixelsHaveTheMost) {
  EXPECT_EQ(Second(R"({"frame":1,"kind":"saturate"})"), Pixels(kFrameWidth * kFrameHeight, 32767));
  EXPECT_EQ(Second(R"({"frame":1,"kind":"saturate"})", {4095, false, 1.0}), Pixels(kFrameWidth * kFrameHeight, 4095));
}

TEST(PixelFaults, StuckRegionStays) {
  Pixels expected = Ramp(1000);
  const Pixels old = Ramp(0);
  for (const std::size_t row : {20U, 21U}) {
    for (std::size_t column = 837; column < 840; ++column) expected[column + 840 * row] = old[column + 840 * row];
  }
  EXPECT_EQ(Second(R"({"frame":1,"kind":"stuck","x":837,"y":20,"width":3,"height":2})"), expected);
}

TEST(PixelFaults, ShiftGoesAround) {
  const Pixels old = Ramp(1000);
  const Pixels shifted = Second(R"({"frame":1,"kind":"shift","rows":-2,"columns":3})");
  for (const auto& [x, y] : {std::pair(0UL, 0UL), {5UL, 700UL}, {839UL, 815UL}, {838UL, 1UL}}) {
    EXPECT_EQ(shifted[(x + 3) % 840 + 840 * ((y + 814) % 816)], old[x + 840 * y]) << x << ' ' << y;
  }
}

TEST(PixelFaults, CosmicsAddToSomePixelsAndStayBelowTheMost) {
  const Pixels old = Ramp(1000);
  const Pixels hit = Second(R"({"frame":1,"kind":"cosmic","hits":5,"amount":100})");
  std::size_t hits = 0;
  for (std::size_t k = 0; k < old.size(); ++k) {
    if (hit[k] == old[k]) continue;
    EXPECT_EQ(hit[k], old[k] + 100);
    ++hits;
  }
  EXPECT_EQ(hits, 5U);
  const Pixels most = Second(R"({"frame":1,"kind":"cosmic","hits":5,"amount":100000})", {32767, true, 2.0});
  EXPECT_EQ(std::ranges::count(most, 32767), 5);
}

TEST(PixelFaults, CosmicsAddToNegativePixels) {
  PixelFaults faults({32767, true, 1.0});
  const auto read = Read(R"([{"frame":0,"kind":"cosmic","hits":100000,"amount":1}])");
  const auto result = faults.Apply(Pixels(kFrameWidth * kFrameHeight, 0xFFFF), read, 0);
  EXPECT_GT(std::ranges::count(result, 0), 80000) << "-1 and 1 is 0";
}

TEST(PixelFaults, BitIsTheOtherOne) {
  Pixels expected = Ramp(1000);
  expected[36 + 840 * 23] ^= 0x8000U;
  EXPECT_EQ(Second(R"({"frame":1,"kind":"bitflip","x":36,"y":23,"bit":15})"), expected);
}

}  // namespace
}  // namespace quen::workbench
