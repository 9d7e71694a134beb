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

double Number(const std::string& line, const std::string& output) {
  char* end = nullptr;
  const double value = std::strtod(line.c_str(), &end);
  if (end == line.c_str()) throw std::runtime_error("not a number: " + output.substr(0, 2000));
  return value;
}

std::vector<double> Numbers(const std::string& output) {
  std::vector<double> values;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) values.push_back(Number(line, output));
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

std::vector<std::vector<double>> ColumnsReadByAstropy(const std::string& path, const std::string& extension,
                                                      const std::vector<std::string>& columns) {
  std::string arguments = "columns " + Quoted(path) + " " + Quoted(extension);
  for (const std::string& column : columns) arguments += " " + Quoted(column);
  const std::string output = Astropy(arguments);
  std::vector<std::vector<double>> values(1);
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) {
      values.emplace_back();
    } else {
      values.back().push_back(Number(line, output));
    }
  }
  values.pop_back();  // behind the last column
  if (values.size() != columns.size()) throw std::runtime_error("other columns: " + output.substr(0, 2000));
  return values;
}

std::vector<double> ColumnReadByAstropy(const std::string& path, const std::string& extension,
                                        const std::string& column) {
  return ColumnsReadByAstropy(path, extension, {column}).front();
}

RegionColumns RegionsReadByAstropy(const std::string& path) {
  const auto columns = ColumnsReadByAstropy(path, "rois", {"x_low", "x_up", "x_ref", "y_low", "y_up", "y_ref"});
  return {columns[0], columns[1], columns[2], columns[3], columns[4], columns[5]};
}

std::string KeywordReadByAstropy(const std::string& path, int hdu, const std::string& key) {
  std::string text = Astropy("keyword " + Quoted(path) + " " + std::to_string(hdu) + " " + Quoted(key));
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace quen::testing
