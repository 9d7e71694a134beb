#include "tools/quen-shs/src/cli/report.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <stdexcept>
#include <system_error>

#include "tools/quen-shs/src/cli/interruption.hpp"
#include "tools/quen-shs/src/files/staged_file.hpp"
#include "tools/quen-shs/src/files/transfer.hpp"

namespace quen_shs {
namespace {

/// At once, so that it stands before what is said of a failure; a full disk shows here.
void PrintTo(int descriptor, const std::string& place, const std::string& text) {
  try {
    WriteAll(descriptor, text);
  } catch (const std::system_error&) {
    throw std::runtime_error("the result cannot be printed: " + place + " takes no more");
  } catch (const Interrupted&) {
    throw Interrupted("interrupted before all of the result was printed");
  }
}

}  // namespace

void Report::Add(const std::string& key, Json value, const std::string& label, const std::string& text) {
  Add(key, std::move(value));
  AddLines(fmt::format("{:<24}{}\n", label, text));
}

void Report::Add(const std::string& key, Json value) { json_[key] = std::move(value); }

void Report::AddLines(const std::string& text) { text_ += text; }

void Report::AddFiles(const StagedFiles& files) {
  for (const std::string& name : files.Names()) {
    json_["files"].push_back(name);
    AddLines("wrote " + name + "\n");
  }
  goes_to_standard_error_ = files.TakeStandardOutput();
}

void Report::Print(bool as_json) const {
  // Not finite numbers become null, and bytes that are no UTF-8 a question mark.
  const std::string text = as_json ? json_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n" : text_;
  if (goes_to_standard_error_) {
    PrintTo(STDERR_FILENO, "standard error", text);
  } else {
    PrintText(text);
  }
}

void PrintText(const std::string& text) { PrintTo(STDOUT_FILENO, "standard output", text); }

}  // namespace quen_shs
