#include "workbench/check/src/examine_parts.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "workbench/check/check.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

/// What a finding needs.
enum Needs : unsigned { kM2s = 1, kCm = 2, kRegions = 4 };

/// By the beginning of its key; the first one that fits.
struct NeedsOfKey {
  std::string_view key;
  unsigned needs;
};
constexpr std::array kNeeds = {NeedsOfKey{"m2s.values", kM2s},      NeedsOfKey{"cm.values", kCm},
                               NeedsOfKey{"m2s.", kM2s | kRegions}, NeedsOfKey{"cm.layout", kCm | kRegions},
                               NeedsOfKey{"cm.", kM2s | kCm},       NeedsOfKey{"", kRegions}};

unsigned NeedsOf(const std::string& key) {
  return std::ranges::find_if(kNeeds, [&](const NeedsOfKey& entry) { return key.starts_with(entry.key); })->needs;
}

unsigned ThoseThere(const ReadableParts& parts) {
  return (parts.m2s ? kM2s : 0U) | (parts.cm ? kCm : 0U) | (parts.regions ? kRegions : 0U);
}

/// What stands in the place of a matrix that is missing: the other one's inverse, whose slopes are in the same layout,
/// so that it adds nothing. Zeros where there is none.
Matrix StandIn(const std::optional<Matrix>& other, std::size_t rows, std::size_t columns) {
  if (other && other->allFinite()) return PseudoInverse(*other);
  return Matrix::Zero(static_cast<Eigen::Index>(rows), static_cast<Eigen::Index>(columns));
}

/// What is left out of the examination.
std::optional<Finding> Skipped(unsigned there) {
  struct Words {
    unsigned needs;
    const char* words;
  };
  constexpr std::array kWords = {Words{kM2s | kRegions, "the layout of M2S, its modes and sub-apertures"},
                                 Words{kCm | kRegions, "the layout of CM"}, Words{kM2s | kCm, "CM * M2S"}};
  std::vector<std::string> skipped;
  for (const auto& [needs, words] : kWords) {
    if ((needs & ~there) != 0) skipped.emplace_back(words);
  }
  if (skipped.empty()) return std::nullopt;
  return Finding{Verdict::kDoubtful,
                 "skipped",
                 "not examined",
                 fmt::format("{}: for want of what is wrong above", fmt::join(skipped, "; ")),
                 "put right what is wrong with the files, and check again",
                 {}};
}

}  // namespace

Findings ExamineParts(const ReadableParts& parts) {
  const auto& [m2s, cm, regions] = parts;
  CalibrationContent content = {
      m2s ? *m2s : StandIn(cm, kNumSlopes, kNumModes), cm ? *cm : StandIn(m2s, kNumModes, kNumSlopes), {}, {}};
  if (regions) {
    content.rois = regions->rois;
    content.used = regions->used;
  }
  const unsigned there = ThoseThere(parts);
  Findings findings = Examine(content);
  std::erase_if(findings, [&](const Finding& finding) { return (NeedsOf(finding.key) & ~there) != 0; });
  for (Finding& finding : findings) {
    const bool is_alone = finding.key == "cm.layout" && !m2s && finding.verdict == Verdict::kGood;
    if (is_alone) finding.text = "its slopes are a smooth wavefront's";  // not those of an M2S that is not there
  }
  if (auto skipped = Skipped(there)) findings.push_back(*std::move(skipped));
  return findings;
}

}  // namespace quen::workbench
