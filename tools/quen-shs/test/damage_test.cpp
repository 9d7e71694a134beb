#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <ostream>
#include <random>
#include <sstream>

#include "fuzz/damage.hpp"
#include "testing/environment.hpp"
#include "testing/process.hpp"
#include "testing/python.hpp"
#include "workbench/fits/plain_text.hpp"
#include "workbench/sensor/calibration.hpp"

// The tool on damaged files of every kind that it reads: whatever they hold, it does its work or refuses it in one
// sentence, in little time and memory. A few damages of each kind; QUEN_DAMAGES=N makes N of each, which is what the
// sanitizers are for.

namespace {

using quen::fuzz::Bytes;
using quen::testing::Outcome;
using quen::testing::Quoted;
using quen::testing::TempDir;

#if defined(QUEN_SANITIZED)
constexpr const char* kLimits = "ulimit -t 60; ASAN_OPTIONS=allocator_may_return_null=1:detect_leaks=0 ";
#else
constexpr const char* kLimits = "ulimit -v 2000000; ulimit -t 20; ";
#endif

std::size_t DamagesOfEach() {
  constexpr std::size_t kFew = 25;
  const char* const wanted = std::getenv("QUEN_DAMAGES");
  return wanted == nullptr ? kFew : static_cast<std::size_t>(std::atoi(wanted));  // NOLINT(cert-err34-c): 0 if none
}

Bytes ReadFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return Bytes{std::istreambuf_iterator<char>(stream), {}};
}

using Random = std::mt19937_64;

std::size_t Pick(Random& random, std::size_t count) { return random() % count; }

// --- Damages, besides those of the cards

/// Whether a block of a FITS file is one of data: headers are printable.
bool IsData(const Bytes& file, std::size_t block) {
  const auto first = file.begin() + static_cast<std::ptrdiff_t>(block);
  return std::any_of(first, first + 80, [](std::uint8_t byte) { return byte < 0x20 || byte > 0x7E; });
}

/// Numbers as a FITS file holds them, in place of others: one, a few, or all that follow.
Bytes WithNumbers(Bytes file, Random& random) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr std::array kNumbers = {
      std::numeric_limits<double>::quiet_NaN(), kInfinity, -kInfinity, 1e308, -1e308, 5e-324, -1.0, 0.0, 1e9, 1e154};
  constexpr std::size_t kBlock = 2880;
  constexpr std::size_t kSize = sizeof(double);
  std::vector<std::size_t> blocks;
  for (std::size_t at = 0; at + kBlock <= file.size(); at += kBlock) {
    if (IsData(file, at)) blocks.push_back(at);
  }
  if (blocks.empty()) return file;
  std::size_t at = blocks[Pick(random, blocks.size())] + std::array{0U, 2U, 4U, 8U}.at(Pick(random, 4));
  const std::size_t runs = std::array<std::size_t, 3>{1, 8, file.size()}.at(Pick(random, 3));
  for (std::size_t run = 0; run < runs && at + kSize <= file.size(); ++run, at += kSize) {
    const auto bits = std::bit_cast<std::uint64_t>(kNumbers.at(Pick(random, kNumbers.size())));
    for (std::size_t k = 0; k < kSize; ++k) file[at + k] = static_cast<std::uint8_t>(bits >> (8 * (kSize - 1 - k)));
  }
  return file;
}

/// A line of a text replaced.
Bytes WithLine(const Bytes& file, Random& random) {
  static const std::vector<std::string> lines = {
      "nan,0",    "0,inf", "1e308,-1e308",          "1e999,1", "5e-324,0", "", "1", ",", "1,2,3", "\x1B[2J,\xFF",
      "0x10,010", "1e9,1", std::string(100000, 'x')};
  std::istringstream stream{std::string(quen::fuzz::Text(file))};
  std::vector<std::string> text;
  for (std::string line; std::getline(stream, line);) text.push_back(line);
  text[Pick(random, text.size())] = lines[Pick(random, lines.size())];
  std::string all;
  for (const std::string& line : text) all += line + "\n";
  return {all.begin(), all.end()};
}

Bytes Damaged(const Bytes& file, Random& random) {
  if (!quen::fuzz::Text(file).starts_with("SIMPLE")) return WithLine(file, random);
  if (Pick(random, 2) == 0) return WithNumbers(file, random);
  return quen::fuzz::Damaged(file, Pick(random, quen::fuzz::CountDamages(file)));
}

// --- What must hold

/// What is wrong with what a command did; empty if nothing is.
std::string Complaint(const Outcome& outcome, bool is_json) {
  const auto lines = std::ranges::count(outcome.err, '\n');
  if (outcome.exit_code < 0 || outcome.exit_code > 2) return "it did not exit by itself";
  if (outcome.exit_code == 0 && !outcome.err.empty()) return "it said something, and went on";
  if (outcome.exit_code == 1 && (lines != 1 || !outcome.err.starts_with("quen-shs: "))) return "no sentence of ours";
  std::istringstream all(outcome.out + outcome.err);
  for (std::string line; std::getline(all, line);) {
    if (quen::workbench::Plain(line) != line) return "a terminal would obey it";
    if (line.size() > quen::workbench::kLongestSentence + 10) return "too long";
  }
  const bool has_result = is_json && !outcome.out.empty();
  return has_result && !nlohmann::json::accept(outcome.out) ? "no JSON" : "";
}

/// What a command said, but for the address sanitizer's remark on memory that CFITSIO asked for and did without.
std::string Said(const std::string& err) {
  std::istringstream all(err);
  std::string said;
  for (std::string line; std::getline(all, line);) {
    if (line.find("AddressSanitizer failed to allocate") == std::string::npos) said += line + "\n";
  }
  return said;
}

/// A kind of file, its name, and what is done to it: {} stands for it, and the folder with the calibration is current.
struct Kind {
  const char* name;
  const char* path;
  std::vector<const char*> commands;

  friend std::ostream& operator<<(std::ostream& stream, const Kind& kind) { return stream << kind.path; }
};

std::vector<Kind> Kinds() {
  return {
      {"ModesToSlopes",
       "data/M2S.fits",
       {"check .", "check . --png o.png", "view {} --png o.png", "loop . --frames 10 --folder o",
        "frame . --modes 0=1 --output o.fits"}},
      {"ControlMatrix",
       "data/CM.fits",
       {"check .", "check . --png o.png", "view {} --png o.png", "loop . --frames 10 --folder o"}},
      {"Regions",
       "data/shs_rois.fits",
       {"check .", "check . --png o.png", "view {} --png o.png",
        "frame . --shape defocus:2 --output o.fits --png o.png", "measure . frame.fits --output o.fits",
        "view frame.fits --calibration . --png o.png", "loop . --frames 10 --folder o"}},
      {"Frame",
       "frame.fits",
       {"view {} --png o.png", "view {} --stretch percentile --png o.png", "measure . {} --output o.fits",
        "measure . {} --extension FRAME --output o.fits",
        "measure . frame.fits --engine correlation --template-from {} --output o.fits"}},
      {"PackedFrame",
       "packed.fits.gz",
       {"view {} --png o.png", "measure . {} --output o.fits", "measure . frame.fits --dark-map {} --output o.fits",
        "frame . --displacements {} --output o.fits", "loop . --frames 10 --disturbance {} --folder o"}},
      {"Map",
       "camera_flat.fits",
       {"view {} --png o.png", "measure . frame.fits --dark-map {} --output o.fits",
        "measure . frame.fits --flat-map {} --output o.fits", "measure . frame.fits --bad-pixels {} --output o.fits",
        "score . --frames 1 --engine weighted --detector camera.json --use-maps"}},
      {"Template", "template.fits", {"measure . frame.fits --engine correlation --template {} --output o.fits"}},
      {"Slopes",
       "slopes.fits",
       {"view {} --png o.png", "frame . --displacements {} --output o.fits --png o.png",
        "view frame.fits --slopes {} --png o.png", "measure . frame.fits --truth {} --output o.fits"}},
      {"Telemetry", "telemetry.fits", {"view {} --png o.png", "loop . --frames 10 --disturbance {} --folder o"}},
      {"TelemetryOfOthers", "aot.fits", {"check {}", "check {} --json", "view {} --png o.png"}},
      {"Disturbance", "modes.fits", {"view {} --png o.png", "loop . --frames 10 --disturbance {} --folder o"}},
      {"Sweep", "sweep.fits", {"view {} --png o.png"}},
      {"Scores", "scores.fits", {"view {} --png o.png"}},
      {"Displacements", "displacements.csv", {"frame . --displacements {} --output o.fits --truth o2.fits"}}};
}

/// A folder with a good file of every kind.
class Sensor {
 public:
  static const Sensor& Get() {
    static const Sensor sensor;
    return sensor;
  }
  [[nodiscard]] Outcome Run(const std::string& arguments) const {
    Outcome outcome = quen::testing::Run("cd " + Quoted(folder_.Path()) + " && " + kLimits + QUEN_SHS " " + arguments);
    outcome.err = Said(outcome.err);
    return outcome;
  }
  [[nodiscard]] std::string operator/(const std::string& name) const { return folder_ / name; }

 private:
  Sensor() {
    quen::workbench::WriteCalibration(folder_.Path(), false);
    for (const char* const arguments : {"loop . --frames 12 --folder . --aot aot.fits",
                                        "loop . --frames 10 --sweep gain=0.2:2:0.6 --delay 3 --folder .",
                                        "score . --frames 1 --engine weighted --engine windowed --output scores.fits",
                                        "detector camera.json --new"}) {
      EXPECT_EQ(Run(arguments).exit_code, 0) << arguments;
    }
    EXPECT_EQ(
        quen::testing::Run("gzip -c " + (folder_ / "frame.fits") + " > " + (folder_ / "packed.fits.gz")).exit_code, 0);
    EXPECT_EQ(quen::testing::Run("head -c 8640 " + (folder_ / "data/M2S.fits") +
                                 " | sed 's/NAXIS2  =                 1214/NAXIS2  =                   13/' > " +
                                 (folder_ / "modes.fits"))
                  .exit_code,
              0);
    EXPECT_EQ(quen::testing::RunPython("from astropy.io import fits; import numpy; fits.writeto(" +
                                       quen::testing::PythonText(folder_ / "template.fits") + ", numpy.eye(3))")
                  .exit_code,
              0);
    std::ofstream text(folder_ / "displacements.csv");
    text << "dx,dy\n";
    for (int i = 0; i < 1089; ++i) text << 0.001 * i << ", -0.5\n";
  }

  TempDir folder_;
};

std::string With(std::string command, const std::string& path) {
  const std::size_t at = command.find("{}");
  return at == std::string::npos ? command : command.replace(at, 2, path);
}

class DamagedFile : public ::testing::TestWithParam<Kind> {};

TEST_P(DamagedFile, IsDoneWithOrRefusedInOneSentence) {
  const Kind& kind = GetParam();
  const Sensor& sensor = Sensor::Get();
  const std::string path = sensor / kind.path;
  const Bytes good = ReadFile(path);
  for (std::size_t which = 0; which < DamagesOfEach(); ++which) {
    Random random(which);
    const bool is_json = Pick(random, 2) == 0;
    const std::string command = With(kind.commands[which == 0 ? 0 : Pick(random, kind.commands.size())], kind.path) +
                                (is_json ? " --json" : "");
    quen::fuzz::WriteFile(path, which == 0 ? good : Damaged(good, random));
    const Outcome outcome = sensor.Run(command);
    const std::string complaint = Complaint(outcome, is_json);
    EXPECT_EQ(complaint, "") << "damage " << which << ", " << command << ": " << outcome.exit_code << "\n"
                             << outcome.err.substr(0, 2000);
    EXPECT_TRUE(which > 0 || outcome.exit_code == 0) << command << ": " << outcome.err;
    if (!complaint.empty() && std::getenv("QUEN_KEEP") != nullptr) {
      std::filesystem::copy_file(path, std::string(std::getenv("QUEN_KEEP")) + "/" + kind.name + std::to_string(which),
                                 std::filesystem::copy_options::overwrite_existing);
    }
  }
  quen::fuzz::WriteFile(path, good);
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, DamagedFile, ::testing::ValuesIn(Kinds()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
