#include "python/src/guards.hpp"

#include <pthread.h>

#include <thread>

namespace log4cplus {
void shutdownThreadPool();  // which the library exports, and no header of its own declares
}  // namespace log4cplus

namespace quen::python {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestWait{2};
constexpr int kShareOfWaiting = 10;  // a long job waits for the interpreter's lock for a tenth of its time at most

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): the process's, as the interpreter is.
std::atomic<bool> is_ending = false;
std::atomic<int> calls_without_lock = 0;
std::mutex files_in_use;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

/// Called where the interpreter begins to end. A thread that asked for its lock afterwards would be ended in the midst
/// of the library, and the process with it: so those that have let it go are told to stop, and waited for.
void EndCalls() {
  is_ending = true;
  const auto last = steady_clock::now() + kLongestWait;
  while (calls_without_lock > 0 && steady_clock::now() < last) {
    const py::gil_scoped_release unlocked;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

/// A child process has the thread that forked, and no other: nothing that another one held would be given back, and its
/// end would wait for ever for the threads that log4cplus keeps for appenders that work in the background. There are no
/// such appenders here.
void PrepareForFork() {
  log4cplus::shutdownThreadPool();
  files_in_use.lock();
}
void GoOnAfterFork() { files_in_use.unlock(); }
void BeginAsChild() {
  calls_without_lock = 0;
  files_in_use.unlock();
}

bool IsMainThread() {
  const py::module_ threading = py::module_::import("threading");
  const py::object ident = threading.attr("get_ident")();
  return ident.equal(py::object(threading.attr("main_thread")().attr("ident")));
}

}  // namespace

WithoutLock::WithoutLock() {
  if (is_ending) return;
  ++calls_without_lock;
  released_.emplace();
}

// NOLINTNEXTLINE(bugprone-exception-escape): the interpreter gave its lock away, and knows how to take it back
WithoutLock::~WithoutLock() {
  if (!released_) return;
  released_.reset();
  --calls_without_lock;
}

FilesInUse::FilesInUse() : lock_(files_in_use) {}

JobWatch::JobWatch() : is_in_main_thread_(IsMainThread()) {}

void JobWatch::operator()() {
  if (!is_in_main_thread_) return StopIfEnding();
  const auto asked = steady_clock::now();
  if (asked < next_) return;
  const py::gil_scoped_acquire lock;
  const auto got = steady_clock::now();
  next_ = got + (kShareOfWaiting - 1) * (got - asked);
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

void JobWatch::StopIfEnding() {
  if (!is_ending) return;
  const py::gil_scoped_acquire lock;
  PyErr_SetNone(PyExc_SystemExit);  // which ends a thread without a word
  throw py::error_already_set();
}

void WatchTheInterpreter() {
  if (PyInterpreterState_Get() != PyInterpreterState_Main()) return;
  py::module_::import("atexit").attr("register")(py::cpp_function(&EndCalls));
  pthread_atfork(&PrepareForFork, &GoOnAfterFork, &BeginAsChild);
}

}  // namespace quen::python
