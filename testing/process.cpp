#include "testing/process.hpp"

#include <sys/wait.h>

#include <cstdlib>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"

namespace quen::testing {
namespace {

std::string Text(const std::string& path) {
  const std::vector<char> bytes = Bytes(path);
  return {bytes.begin(), bytes.end()};
}

}  // namespace

Outcome Run(const std::string& command) {
  const TempDir folder;
  const std::string out = folder / "out";
  const std::string err = folder / "err";
  // NOLINTNEXTLINE(cert-env33-c): the commands are the tests' own.
  const int status = std::system(("(" + command + ") </dev/null >" + Quoted(out) + " 2>" + Quoted(err)).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Text(out), Text(err)};
}

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

}  // namespace quen::testing
