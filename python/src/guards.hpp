#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "common/random/random.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"

/// @file
/// What holds for the length of one call from Python.

namespace quen::python {

namespace py = pybind11;

/// Tells when an object is used by two threads at once, or by a call within a call.
class InUse {
 public:
  /// @throws std::runtime_error  it is in use already
  InUse(std::atomic_flag& flag, const std::string& what) : flag_(flag) {
    if (flag_.test_and_set(std::memory_order_acquire)) {
      throw std::runtime_error(what + ": is in use by another call; give each thread one of its own");
    }
  }
  ~InUse() { flag_.clear(std::memory_order_release); }
  InUse(const InUse&) = delete;
  InUse& operator=(const InUse&) = delete;
  InUse(InUse&&) = delete;
  InUse& operator=(InUse&&) = delete;

 private:
  std::atomic_flag& flag_;
};

/// Puts a generator into the place of the calling thread's, and back. In four copies of it: two swaps would be six.
class InPlaceOfTheThreads {
 public:
  explicit InPlaceOfTheThreads(std::mt19937& generator)
      : generator_(generator),
        threads_(common::random::detail::MersenneTwisterEngine()),
        kept_(std::exchange(threads_, generator_)) {}
  ~InPlaceOfTheThreads() { generator_ = std::exchange(threads_, kept_); }
  InPlaceOfTheThreads(const InPlaceOfTheThreads&) = delete;
  InPlaceOfTheThreads& operator=(const InPlaceOfTheThreads&) = delete;
  InPlaceOfTheThreads(InPlaceOfTheThreads&&) = delete;
  InPlaceOfTheThreads& operator=(InPlaceOfTheThreads&&) = delete;

 private:
  std::mt19937& generator_;
  std::mt19937& threads_;
  const std::mt19937 kept_;
};

/// While this exists, the interpreter's lock is free for other threads. Not so once the interpreter has begun to end.
class WithoutLock {
 public:
  WithoutLock();
  ~WithoutLock();  // NOLINT(bugprone-exception-escape): see its definition
  WithoutLock(const WithoutLock&) = delete;
  WithoutLock& operator=(const WithoutLock&) = delete;
  WithoutLock(WithoutLock&&) = delete;
  WithoutLock& operator=(WithoutLock&&) = delete;

 private:
  std::optional<py::gil_scoped_release> released_;
};

/// One thread at a time reads and writes files, for CFITSIO has one list of messages for all of them. To be waited for
/// without the interpreter's lock, and held while no Python code runs.
class FilesInUse {
 public:
  FilesInUse();

 private:
  std::lock_guard<std::mutex> lock_;
};

/// Ends a long job where the user has asked for that, with whatever Python's own handler raises, or where the
/// interpreter ends. To be called after each frame, by the thread that has made it.
///
/// Python handles signals in its main thread, under its lock. Where other threads are busy, that lock is a matter of
/// milliseconds: the next look comes the later, the longer the last one has waited.
class JobWatch {
 public:
  /// Under the interpreter's lock.
  JobWatch();
  void operator()();

 private:
  static void StopIfEnding();

  bool is_in_main_thread_;
  std::chrono::steady_clock::time_point next_ = {};
};

/// Where the interpreter ends, calls that have let its lock go are told to stop, and waited for, for two seconds.
void WatchTheInterpreter();

/// Throws Python's OSError, or one derived from it.
[[noreturn]] inline void ThrowOsError(const std::string& text, PyObject* type = PyExc_OSError) {
  PyErr_SetString(type, text.c_str());
  throw py::error_already_set();
}

/// Does what reads or writes files, whose failures are OSErrors in Python.
template <typename Action>
auto WithFiles(const Action& action) {
  try {
    return action();
  } catch (const std::runtime_error& error) {  // those of the file system library among them
    ThrowOsError(error.what());
  }
}

/// When this ends, the library finds files by itself again, and not those that were in use.
class CalibrationEnds {
 public:
  CalibrationEnds() = default;
  ~CalibrationEnds() { workbench::UseCalibration(std::vector<workbench::InputFile>{}); }
  CalibrationEnds(const CalibrationEnds&) = delete;
  CalibrationEnds& operator=(const CalibrationEnds&) = delete;
  CalibrationEnds(CalibrationEnds&&) = delete;
  CalibrationEnds& operator=(CalibrationEnds&&) = delete;
};

/// Does what opens a folder's calibration. A file of it that is missing is a FileNotFoundError in Python.
template <typename Action>
auto WithCalibration(const std::string& folder, const Action& action) {
  try {
    return action();
  } catch (const std::runtime_error& error) {
    for (const std::string& file : workbench::CalibrationNames(folder)) {
      std::error_code unreadable;
      if (!std::filesystem::exists(file, unreadable)) ThrowOsError(error.what(), PyExc_FileNotFoundError);
    }
    ThrowOsError(error.what());
  }
}

/// What makes an object again, for pickle at any protocol. (Protocols 0 and 1 make an object of pybind11's own base
/// class otherwise, which ends the process.)
template <typename T, typename... Options, typename Arguments>
void DefineReduce(py::class_<T, Options...>& kind, const Arguments& arguments) {
  kind.def("__reduce__", [arguments](const py::object& self) {
    return py::make_tuple(py::type::of(self), arguments(self.cast<const T&>()));
  });
}

/// For objects that nothing makes again.
template <typename T, typename... Options>
void RefusePickling(py::class_<T, Options...>& kind) {
  kind.def("__reduce__", [](const py::object& self) -> py::tuple {
    throw py::type_error("cannot pickle " + std::string(py::repr(py::type::of(self))));
  });
}

/// Does what refuses values that it is given, or finds in files. Those refusals are ValueErrors in Python.
template <typename Action>
auto WithValues(const Action& action) {
  try {
    return action();
  } catch (const py::builtin_exception&) {  // Python's own, which are runtime errors as well
    throw;
  } catch (const std::runtime_error& error) {
    throw py::value_error(error.what());
  }
}

}  // namespace quen::python
