#include "tools/quen-shs/cli/output.hpp"

#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "workbench/fits/interruption.hpp"
#include "workbench/fits/plain_text.hpp"
#include "workbench/fits/transfer.hpp"

namespace quen::tool {

namespace {

void PrintTo(int descriptor, const std::string& place, const std::string& text) {
  try {
    workbench::WriteAll(descriptor, text);
  } catch (const std::system_error&) {
    throw std::runtime_error("the result cannot be printed: " + place + " takes no more");
  } catch (const workbench::Interrupted&) {
    throw workbench::Interrupted("interrupted before all of the result was printed");
  }
}

}  // namespace

void Print(const std::string& text) { PrintTo(STDOUT_FILENO, "standard output", text); }

void PrintAside(const std::string& text) { PrintTo(STDERR_FILENO, "standard error", text); }

void Say(std::string_view sentence) {
  static_cast<void>(std::fprintf(stderr, "quen-shs: %s\n", workbench::Sentence(sentence).c_str()));
}

void SayOutOfMemory() {
  static_cast<void>(std::fputs(
      "quen-shs: the memory that this process may use does not suffice; free some, or allow it more\n", stderr));
}

}  // namespace quen::tool
