#include "common/filesystem/filesystem.hpp"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "pim/helper.hpp"

namespace quen::common::FileSystem {
namespace {

/// The integration root. Unset is an error, not an empty root.
std::string IntegrationRoot() {
  const char* const root = std::getenv("INTROOT");
  // The standard library's words for a text made of nothing, which hosts know: the text is the interface.
  if (root == nullptr) throw std::logic_error("basic_string: construction from null is not valid");
  return root;
}

std::string ConfigurationPath() {
  const char* const path = std::getenv("CFGPATH");
  return path == nullptr ? std::string() : path;
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    if (&line != &lines.front()) text += "\n";
    text += line;
  }
  return text;
}

/// The places searched, as the not-found message lists them. Their order is not the order of the search.
std::string PlacesSearched(const std::vector<std::string>& directories) {
  std::string places = "/\n./\n$CFGPATH (" + ConfigurationPath() + ")\n";
  const std::string root = IntegrationRoot();
  if (!root.empty()) places += "$INTROOT/resource (" + root + "/resource)\n";
  return places + Joined(directories);
}

}  // namespace

std::string FindFile(const std::string& name, const std::vector<std::string>& directories) {
  namespace fs = std::filesystem;
  const std::string resolved = pim::Helper::FindFile(name);
  if (!resolved.empty()) return fs::absolute(resolved).string();

  if (fs::exists(name)) return fs::absolute(name).string();

  for (const std::string& directory : directories) {
    const fs::path candidate = fs::path(directory) / name;
    if (fs::exists(candidate)) return fs::absolute(candidate).string();
  }

  const std::string root = IntegrationRoot();
  if (root.empty()) return {};
  const fs::path candidate = fs::path(root) / "resource" / name;
  return fs::exists(candidate) ? fs::absolute(candidate).string() : std::string();
}

std::string FindFileOrThrow(const std::string& name, const std::vector<std::string>& directories) {
  std::string found = FindFile(name, directories);
  if (!found.empty()) return found;
  throw std::runtime_error("FileSystem: Path or file " + name + " not found, searched in:\n" +
                           PlacesSearched(directories));
}

}  // namespace quen::common::FileSystem
