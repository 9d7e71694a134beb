#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "common/fits/fits.hpp"
#include "workbench/check/src/checks.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/sensor_tables.hpp"

namespace quen::workbench {
namespace {

using Axes = std::vector<std::size_t>;

/// Axes of the two matrices, NAXIS1 first.
Axes ExpectedAxes(std::size_t file) { return file == 0 ? Axes{kNumModes, kNumSlopes} : Axes{kNumSlopes, kNumModes}; }

std::string PathOf(const InputFile& file) { return std::filesystem::weakly_canonical(file.Name()).string(); }

/// A file that is packed, which the library does not unpack.
std::optional<Finding> CheckPacked(const std::string& key, const std::string& name, const InputFile& file) {
  using namespace std::string_literals;
  const std::string beginning = file.Beginning(6);
  for (const auto& [magic, tool] : {std::pair("\x1F\x8B"s, "gunzip"), std::pair("BZh"s, "bunzip2"),
                                    std::pair("\xFD"s + "7zXZ"s, "unxz"), std::pair("PK\x03\x04"s, "unzip")}) {
    if (!beginning.starts_with(magic)) continue;
    return Finding{Verdict::kWrong,
                   key,
                   name,
                   PathOf(file) + ": it is compressed, and the library unpacks nothing",
                   fmt::format("unpack it with {}, under the same name", tool),
                   {}};
  }
  return std::nullopt;
}

/// What `look` finds, or why the file cannot be read.
/// @param rewrite  what to do where it holds something else
template <typename Look>
Finding Looked(const std::string& key, const std::string& name, const FoundFile& found, const char* rewrite,
               const Look& look) {
  if (!found.file) {
    return {Verdict::kWrong, key, name, found.fault, "put the file there that was made with the others", {}};
  }
  const InputFile& file = *found.file;
  if (auto packed = CheckPacked(key, name, file)) return *std::move(packed);
  try {
    if (auto finding = look(file)) return *std::move(finding);
    return {Verdict::kGood, key, name, PathOf(file), "", {}};
  } catch (const std::runtime_error& error) {
    if (IsFailureToOpen(error)) throw;  // says nothing of the calibration
    return {Verdict::kWrong, key, name, error.what(), rewrite, {}};
  }
}

constexpr const char* kTranspose = "transpose it before writing";

Finding CheckMatrixFile(const std::string& key, const std::string& name, const FoundFile& found, const Axes& expected) {
  constexpr const char* kRewrite = "write it again, as a primary image of doubles with these axes";
  return Looked(key, name, found, kRewrite, [&](const InputFile& file) -> std::optional<Finding> {
    const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(OpenFits(file, std::nullopt));
    if (axes == Axes(expected.rbegin(), expected.rend())) {
      return Finding{Verdict::kWrong,
                     key,
                     name,
                     fmt::format("{} is transposed: its axes are {}, expected {} (NAXIS1 first)", PathOf(file),
                                 fmt::join(axes, " x "), fmt::join(expected, " x ")),
                     kTranspose,
                     {}};
    }
    if (axes == expected && bitpix == DOUBLE_IMG) return std::nullopt;
    return Finding{Verdict::kWrong,
                   key,
                   name,
                   fmt::format("{}: expected {} doubles (BITPIX -64), found {} elements with BITPIX {}", PathOf(file),
                               fmt::join(expected, " x "), fmt::join(axes, " x "), bitpix),
                   kRewrite,
                   {}};
  });
}

// --- Regions and flags

/// A column that the library reads, of a table of 1089 rows.
std::optional<std::string> MissingColumn(const InputFile& file, const char* table,
                                         const std::vector<std::string>& expected) {
  const auto handle = OpenFits(file, table);
  const quen::common::Fits::TableParams table_params = quen::common::Fits::ReadTableParams(handle, std::nullopt);
  const auto& shape = table_params.first;
  const auto& columns = table_params.second;
  for (const std::string& name : expected) {
    const auto has = [&](const auto& same) {
      return std::ranges::any_of(columns, [&](const auto& column) { return same(std::get<0>(column), name); });
    };
    if (has([](const std::string& one, const std::string& other) { return one == other; })) continue;
    const bool is_capital = has([](const std::string& one, const std::string& other) {
      return std::ranges::equal(one, other, [](char a, char b) { return std::tolower(a) == b; });
    });
    return fmt::format("the table {} has no column {}{}", table, name,
                       is_capital ? ", only one in capitals: letters count as they are" : "");
  }
  const std::size_t rows = shape.empty() ? 0 : shape.back();
  if (rows == kNumRois || table != std::string(kRegionTable)) return std::nullopt;
  return fmt::format("the table {} has {} rows, expected {}", table, rows, kNumRois);
}

/// The first region that is not on the frame.
std::optional<std::string> RegionOffTheFrame(const InputFile& file) {
  const std::vector<RegionRow> rows = ReadBounds(file);
  for (const auto& [low, up, pixels, name] : {std::tuple(&RegionRow::x_low, &RegionRow::x_up, kFrameWidth, "columns"),
                                              std::tuple(&RegionRow::y_low, &RegionRow::y_up, kFrameHeight, "rows")}) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (rows[i].*low <= rows[i].*up && rows[i].*up <= pixels) continue;
      return fmt::format("region {} (counted from 0) has {} from {} up to {}, the frame has {}", i, name, rows[i].*low,
                         rows[i].*up, pixels);
    }
  }
  return std::nullopt;
}

Finding CheckRoisFile(const FoundFile& found) {
  constexpr const char* kKey = "rois.file";
  constexpr const char* kName = "shs_rois.fits";
  constexpr const char* kRewrite = "write it again, with the two tables as the library reads them";
  return Looked(kKey, kName, found, kRewrite, [&](const InputFile& file) -> std::optional<Finding> {
    auto wrong = MissingColumn(file, kRegionTable, RegionColumnNames());
    if (!wrong) wrong = MissingColumn(file, kFlagTable, FlagColumnNames());
    if (!wrong) wrong = RegionOffTheFrame(file);
    if (!wrong) return std::nullopt;
    return Finding{Verdict::kWrong, kKey, kName, fmt::format("{}: {}", PathOf(file), *wrong), kRewrite, {}};
  });
}

}  // namespace

Findings CheckFiles(std::span<const FoundFile> calibration) {
  Finding m2s = CheckMatrixFile("m2s.file", "M2S.fits", calibration[0], ExpectedAxes(0));
  Finding cm = CheckMatrixFile("cm.file", "CM.fits", calibration[1], ExpectedAxes(1));
  if (m2s.advice == kTranspose && cm.advice == kTranspose) {  // each has the axes of the other
    m2s.advice = cm.advice =
        "exchange M2S.fits and CM.fits; or, if each is what its name says, transpose both before "
        "writing: M2S has slopes of some pixels, CM in general much smaller numbers";
  }
  return {std::move(m2s), std::move(cm), CheckRoisFile(calibration[2])};
}

}  // namespace quen::workbench
