#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <filesystem>
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

/// Puts a generator into the place of the calling thread's, and back.
class InPlaceOfTheThreads {
 public:
  explicit InPlaceOfTheThreads(std::mt19937& generator)
      : generator_(generator), threads_(common::random::detail::MersenneTwisterEngine()) {
    std::swap(generator_, threads_);
  }
  ~InPlaceOfTheThreads() { std::swap(generator_, threads_); }
  InPlaceOfTheThreads(const InPlaceOfTheThreads&) = delete;
  InPlaceOfTheThreads& operator=(const InPlaceOfTheThreads&) = delete;
  InPlaceOfTheThreads(InPlaceOfTheThreads&&) = delete;
  InPlaceOfTheThreads& operator=(InPlaceOfTheThreads&&) = delete;

 private:
  std::mt19937& generator_;
  std::mt19937& threads_;
};

/// Ends a long job where the user has asked for that, with whatever Python's own handler raises. Takes the
/// interpreter's lock for as long as that takes.
inline void StopIfAsked() {
  const py::gil_scoped_acquire lock;
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

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
