#include "workbench/pictures/check_picture.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <span>
#include <string_view>

#include "workbench/pictures/src/check_panels.hpp"

namespace quen::workbench {
namespace {

constexpr double kLine = 21.0;  // of text
constexpr double kAir = 26.0;   // between findings
constexpr std::size_t kRegionInTheMiddle = 544;

/// Something to see of any calibration.
using Look = std::function<Panel(const CalibrationContent&)>;

std::vector<Look> LooksAtModes(Panel (*look)(const CalibrationContent&, std::size_t),
                               const std::vector<std::size_t>& modes) {
  std::vector<Look> looks;
  looks.reserve(modes.size());
  for (const std::size_t mode : modes) {
    looks.emplace_back([look, mode](const CalibrationContent& content) { return look(content, mode); });
  }
  return looks;
}

Look LookAtRegion(std::size_t i) {
  return [i](const CalibrationContent& content) { return RegionAt(content, i); };
}

/// The modes that a finding is about, and others to compare with: the first two are tilts in many bases, and look alike
/// in many layouts.
std::vector<std::size_t> ModesOf(const Finding& finding) {
  std::vector<std::size_t> modes = finding.numbers;
  for (const std::size_t mode : {2U, 6U, 3U, 7U}) {
    if (std::ranges::find(modes, mode) == modes.end()) modes.push_back(mode);
  }
  return modes;
}

/// What a finding is about, the most telling first.
std::vector<Look> LooksAt(const Finding& finding) {
  const std::string_view key = finding.key;
  if (key == "m2s.subapertures" || key == "flags.pupil") return {Flags, LooksAtModes(M2sMode, {2}).front()};
  if (key.starts_with("m2s.") && key != "m2s.file") return LooksAtModes(M2sMode, ModesOf(finding));
  if (key == "cm.layout" || key == "cm.values") return LooksAtModes(CmMode, ModesOf(finding));
  if (key.starts_with("cm.") && key != "cm.file") return {Product};
  if (key.starts_with("flags.")) return {Flags};
  const std::size_t region = finding.numbers.empty() ? kRegionInTheMiddle : finding.numbers.front();
  if (key.starts_with("references.") || key == "layout") return {Offsets, LookAtRegion(region)};
  if (key.starts_with("regions.")) return {Coverage, LookAtRegion(region)};
  return {};
}

/// A calibration as it stands, or as a correction would have it.
struct Version {
  std::string words;
  CalibrationContent content;
};

/// As it stands first, then as each of the corrections would have it.
std::vector<Version> VersionsOf(const CalibrationContent& content, const Finding& finding) {
  std::vector<Version> versions = {{", as it stands", content}};
  for (const Correction& correction : finding.corrections) {
    const std::size_t number = versions.size();
    versions.push_back(
        {finding.corrections.size() > 1 ? fmt::format(", put right ({})", number) : ", put right", content});
    correction.apply(versions.back().content);
  }
  return versions;
}

/// A heading, and a row of panels.
struct Section {
  std::vector<std::string> lines;
  std::vector<Panel> panels;
};

/// Each look at all versions, as many as have room in a row.
std::vector<Panel> Compared(const std::vector<Look>& looks, std::span<const Version> versions) {
  std::vector<Panel> panels;
  versions = versions.first(std::min(versions.size(), kPanelsInARow));
  for (const Look& look : looks) {
    if (panels.size() + versions.size() > kPanelsInARow) break;
    for (const Version& version : versions) {
      panels.push_back(look(version.content));
      panels.back().title += version.words;
    }
  }
  return panels;
}

/// The file that a correction has changed.
const char* FileOf(const CalibrationContent& content, const CalibrationContent& corrected) {
  if (corrected.m2s != content.m2s) return "M2S.fits";
  return corrected.cm != content.cm ? "CM.fits" : "shs_rois.fits";
}

/// "(1) scaled in CM.fits, (2) scaled in M2S.fits".
std::string CorrectionWords(const Finding& finding, const std::vector<Version>& versions) {
  const CalibrationContent& as_it_stands = versions.front().content;
  std::vector<std::string> words;
  for (const Correction& correction : finding.corrections) {
    std::string mistake = correction.mistake;
    std::ranges::replace(mistake, '_', ' ');
    const std::size_t number = words.size() + 1;
    words.push_back(fmt::format("({}) {} in {}", number, mistake, FileOf(as_it_stands, versions[number].content)));
  }
  return fmt::format("{}", fmt::join(words, ", "));
}

Section SectionOf(const CalibrationContent& content, const Finding& finding) {
  const std::vector<Version> versions = VersionsOf(content, finding);
  Section section;
  section.lines.push_back(fmt::format("{}: {}: {}", Word(finding.verdict), finding.subject, finding.text));
  if (!finding.advice.empty()) section.lines.push_back("→ " + finding.advice);
  if (finding.corrections.size() > 1) section.lines.push_back("Put right: " + CorrectionWords(finding, versions));
  section.panels = Compared(LooksAt(finding), versions);
  return section;
}

std::vector<Section> SectionsOf(const CalibrationContent& content, const Findings& findings) {
  std::vector<Section> sections;
  for (const Finding& finding : findings) {
    if (finding.verdict != Verdict::kGood) sections.push_back(SectionOf(content, finding));
  }
  if (!sections.empty()) return sections;
  const std::vector<Version> only = {{"", content}};
  sections.push_back({{"Nothing is wrong or doubtful. Slopes of the first modes"},
                      Compared(LooksAtModes(M2sMode, {0, 1, 2, 3}), only)});
  sections.push_back(
      {{"References, how far they are off the middle of their regions; usage flags; and what the control matrix "
        "makes of the modes"},
       Compared({Offsets, LookAtRegion(kRegionInTheMiddle), Flags, Product}, only)});
  return sections;
}

}  // namespace

std::string DrawFindings(const CalibrationContent& content, const Findings& findings, const std::string& title) {
  std::vector<Section> sections = SectionsOf(content, findings);
  const Canvas measure(1, 1);
  double height = kTop + kAir;
  for (Section& section : sections) {
    std::vector<std::string> wrapped;
    for (const std::string& line : section.lines) {
      std::ranges::copy(Wrapped(measure.Cairo(), line, kPanelsWidth - 2.0 * kMargin), std::back_inserter(wrapped));
    }
    section.lines = std::move(wrapped);
    height += kLine * static_cast<double>(section.lines.size()) + PanelsHeight(section.panels) + kAir;
  }
  const Canvas canvas(static_cast<int>(kPanelsWidth), static_cast<int>(height));
  cairo_t* const cr = canvas.Cairo();
  Use(cr, kInk);
  Write(cr, kMargin, kTop - kTitleAbove, title + ". " + kArrowWords);
  double top = kTop + kAir;
  for (const Section& section : sections) {
    Use(cr, kInk);
    for (const std::string& line : section.lines) {
      Write(cr, kMargin, top, line);
      top += kLine;
    }
    DrawPanels(cr, top - kLine / 2.0, section.panels);
    top += PanelsHeight(section.panels) + kAir;
  }
  return canvas.Png();
}

}  // namespace quen::workbench
