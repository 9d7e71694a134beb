#include "tools/quen-shs/src/cli/output.hpp"

#include <cstdio>
#include <stdexcept>

#include "tools/quen-shs/src/cli/plain_text.hpp"

namespace quen_shs {

void Print(const std::string& text) {
  // A full disk shows where the buffer is emptied.
  if (std::fwrite(text.data(), 1, text.size(), stdout) < text.size() || std::fflush(stdout) != 0) {
    throw std::runtime_error("the result cannot be printed: standard output takes no more");
  }
}

void Say(std::string_view sentence) {
  static_cast<void>(std::fprintf(stderr, "quen-shs: %s\n", Sentence(sentence).c_str()));
}

void SayOutOfMemory() {
  static_cast<void>(std::fputs(
      "quen-shs: the memory that this process may use does not suffice; free some, or allow it more\n", stderr));
}

}  // namespace quen_shs
