#include "testing/python.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace quen::testing {
namespace {

[[noreturn]] void Refuse() { throw std::runtime_error("the Python interpreter " QUEN_PYTHON " does not answer"); }

/// An interpreter at the other ends of two pipes.
class Interpreter {
 public:
  Interpreter() {
    std::array<int, 2> programs{};
    std::array<int, 2> answers{};
    if (pipe2(programs.data(), O_CLOEXEC) != 0 || pipe2(answers.data(), O_CLOEXEC) != 0) Refuse();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, programs[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, answers[1], STDOUT_FILENO);
    std::string python = QUEN_PYTHON;
    std::string script = QUEN_SOURCE_DIR "/testing/run_python.py";
    const std::array<char*, 3> arguments{python.data(), script.data(), nullptr};
    const int failure = posix_spawn(&process_, python.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(programs[0]);
    close(answers[1]);
    programs_ = programs[1];
    answers_ = answers[0];
    if (failure != 0) Refuse();
  }

  /// Nothing more to read ends the interpreter.
  ~Interpreter() {
    close(programs_);
    close(answers_);
    waitpid(process_, nullptr, 0);
  }

  Interpreter(const Interpreter&) = delete;
  Interpreter(Interpreter&&) = delete;
  Interpreter& operator=(const Interpreter&) = delete;
  Interpreter& operator=(Interpreter&&) = delete;

  [[nodiscard]] Outcome Run(const std::string& program) const {
    Write(std::to_string(program.size()) + "\n");
    Write(program);
    std::string sizes;
    do sizes += Read(1);
    while (sizes.back() != '\n');
    Outcome outcome{};
    std::size_t out = 0;
    std::size_t err = 0;
    std::istringstream(sizes) >> outcome.exit_code >> out >> err;
    outcome.out = Read(out);
    outcome.err = Read(err);
    return outcome;
  }

 private:
  void Write(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t done = write(programs_, bytes.data(), bytes.size());
      if (done < 0 && errno != EINTR) Refuse();
      if (done > 0) bytes.remove_prefix(static_cast<std::size_t>(done));
    }
  }

  [[nodiscard]] std::string Read(std::size_t size) const {
    std::string bytes(size, '\0');
    for (std::size_t at = 0; at < size;) {
      const ssize_t done = read(answers_, bytes.data() + at, size - at);
      if (done == 0 || (done < 0 && errno != EINTR)) Refuse();
      if (done > 0) at += static_cast<std::size_t>(done);
    }
    return bytes;
  }

  pid_t process_ = -1;
  int programs_ = -1;
  int answers_ = -1;
};

}  // namespace

Outcome RunPython(const std::string& program) {
  static const Interpreter interpreter;
  return interpreter.Run(program);
}

std::string PythonText(const std::string& text) {
  std::string quoted = "'";
  for (const char letter : text) {
    if (letter == '\\' || letter == '\'') quoted += '\\';
    quoted += letter;
  }
  return quoted + "'";
}

}  // namespace quen::testing
