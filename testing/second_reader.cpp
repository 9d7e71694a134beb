#include "testing/second_reader.hpp"

#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "testing/process.hpp"

namespace quen::testing {
namespace {

/// What a command printed, and its exit code where that is not 0.
std::string OutputOf(const std::string& command) {
  const Outcome outcome = Run(command);
  const std::string failure =
      outcome.exit_code == 0 ? std::string() : "(exit code " + std::to_string(outcome.exit_code) + ")\n";
  return outcome.out + outcome.err + failure;
}

std::string Astropy(const std::string& arguments) {
  return OutputOf(QUEN_PYTHON " " QUEN_SOURCE_DIR "/testing/read_fits.py " + arguments);
}

std::vector<double> Numbers(const std::string& output) {
  std::vector<double> values;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    char* end = nullptr;
    values.push_back(std::strtod(line.c_str(), &end));
    if (end == line.c_str()) throw std::runtime_error("not a number: " + output.substr(0, 2000));
  }
  return values;
}

}  // namespace

std::string ComplaintsOfFitsverify(const std::string& path) {
  const std::string output = OutputOf("fitsverify -q " + Quoted(path));
  return output.starts_with("verification OK") ? std::string() : output + OutputOf("fitsverify " + Quoted(path));
}

std::string DescribedByAstropy(const std::string& path) { return Astropy("describe " + Quoted(path)); }

std::vector<double> ImageReadByAstropy(const std::string& path, int hdu) {
  return Numbers(Astropy("image " + Quoted(path) + " " + std::to_string(hdu)));
}

std::vector<double> ColumnReadByAstropy(const std::string& path, const std::string& extension,
                                        const std::string& column) {
  return Numbers(Astropy("column " + Quoted(path) + " " + Quoted(extension) + " " + Quoted(column)));
}

RegionColumns RegionsReadByAstropy(const std::string& path) {
  const auto column = [&](const char* name) { return ColumnReadByAstropy(path, "rois", name); };
  return {column("x_low"), column("x_up"), column("x_ref"), column("y_low"), column("y_up"), column("y_ref")};
}

std::string KeywordReadByAstropy(const std::string& path, int hdu, const std::string& key) {
  std::string text = Astropy("keyword " + Quoted(path) + " " + std::to_string(hdu) + " " + Quoted(key));
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace quen::testing
