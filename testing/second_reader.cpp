#include "testing/second_reader.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace quen::testing {
namespace {

/// Standard output and error of a command; the exit status is appended when it is not 0.
std::string OutputOf(const std::string& command) {
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string output;
  std::array<char, 4096> chunk{};
  for (std::size_t read = 0; (read = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0;) {
    output.append(chunk.data(), read);
  }
  const int status = pclose(pipe);
  if (status != 0) output += "(wait status " + std::to_string(status) + ")\n";
  return output;
}

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

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

std::string KeywordReadByAstropy(const std::string& path, int hdu, const std::string& key) {
  std::string text = Astropy("keyword " + Quoted(path) + " " + std::to_string(hdu) + " " + Quoted(key));
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace quen::testing
