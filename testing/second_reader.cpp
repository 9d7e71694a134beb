#include "testing/second_reader.hpp"

#include <array>
#include <bit>
#include <sstream>
#include <stdexcept>

#include "testing/process.hpp"
#include "testing/python.hpp"

namespace quen::testing {
namespace {

/// What a program printed, and its exit code where that is not 0.
std::string All(const Outcome& outcome) {
  const std::string failure =
      outcome.exit_code == 0 ? std::string() : "(exit code " + std::to_string(outcome.exit_code) + ")\n";
  return outcome.out + outcome.err + failure;
}

/// A call of a function of read_fits.py.
Outcome Astropy(const std::string& call) { return RunPython("import read_fits\nread_fits." + call); }

/// Lists of numbers as read_fits.py writes them.
std::vector<std::vector<double>> Numbers(const Outcome& outcome, std::size_t lists) {
  if (outcome.exit_code != 0) throw std::runtime_error("no numbers: " + outcome.err);
  std::istringstream bytes(outcome.out);
  std::vector<std::vector<double>> values(lists);
  for (std::vector<double>& list : values) {
    std::string size;
    std::getline(bytes, size);
    list.resize(std::stoul(size));
    for (double& value : list) {
      std::array<char, sizeof(double)> written{};
      bytes.read(written.data(), written.size());
      value = std::bit_cast<double>(written);
    }
  }
  return values;
}

}  // namespace

std::string ComplaintsOfFitsverify(const std::string& path) {
  const std::string output = All(Run("fitsverify -q " + Quoted(path)));
  return output.starts_with("verification OK") ? std::string() : output + All(Run("fitsverify " + Quoted(path)));
}

std::string DescribedByAstropy(const std::string& path) { return All(Astropy("describe(" + PythonText(path) + ")")); }

std::vector<double> ImageReadByAstropy(const std::string& path, int hdu) {
  return Numbers(Astropy("image(" + PythonText(path) + ", " + std::to_string(hdu) + ")"), 1).front();
}

std::vector<std::vector<double>> ColumnsReadByAstropy(const std::string& path, const std::string& extension,
                                                      const std::vector<std::string>& columns) {
  std::string names;
  for (const std::string& column : columns) names.append(PythonText(column)).append(", ");
  return Numbers(Astropy("columns(" + PythonText(path) + ", " + PythonText(extension) + ", [" + names + "])"),
                 columns.size());
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
  std::string text =
      All(Astropy("keyword(" + PythonText(path) + ", " + std::to_string(hdu) + ", " + PythonText(key) + ")"));
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace quen::testing
