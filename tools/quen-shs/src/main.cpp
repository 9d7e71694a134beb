#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "tools/quen-shs/src/cli/command_line.hpp"
#include "tools/quen-shs/src/cli/interruption.hpp"
#include "tools/quen-shs/src/files/transfer.hpp"
#include "tools/quen-shs/src/verbs/verbs.hpp"

namespace {

constexpr int kFailed = 1;

/// What went wrong, in one sentence.
std::string Reason(const std::exception& error) {
  const auto* const file_error = dynamic_cast<const std::filesystem::filesystem_error*>(&error);
  if (file_error == nullptr) return error.what();
  return "cannot make " + file_error->path1().string() + ": " + file_error->code().message();
}

void Say(const std::string& sentence) { static_cast<void>(std::fprintf(stderr, "quen-shs: %s\n", sentence.c_str())); }

}  // namespace

int main(int argc, char** argv) {
  try {
    quen_shs::OccupyStandardDescriptors();
    quen_shs::NoteInterruptions();
    quen_shs::CommandLine line;
    quen_shs::AddVerbs(line);
    return line.Run(argc, argv);
  } catch (const quen_shs::Interrupted& interruption) {
    Say(interruption.what());
    quen_shs::EndByInterruption();
  } catch (const std::exception& error) {
    Say(Reason(error));
  }
  return kFailed;
}
