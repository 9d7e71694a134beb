#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <gsl/span>
#include <vector>

#include "basesim/base_simulator.hpp"

/// @file
/// numpy's arrays as the library takes and gives them: row by row (C order), [row, column].

namespace quen::python {

namespace py = pybind11;

using Shape = std::vector<py::ssize_t>;
inline constexpr py::ssize_t kAnyLength = -1;  ///< of an axis that may have any

/// Numbers that Python gave, as elements of type T: an array of that type in C order as it is, anything else converted
/// once.
/// @param name   of the argument, in messages
/// @param shape  that it must have
/// @throws py::type_error   no numbers, or of a type that a T does not hold without loss
/// @throws py::value_error  another shape
template <typename T>
py::array_t<T, py::array::c_style> Input(const py::object& values, const char* name, const Shape& shape);

/// An array to be written to, as it is.
/// @throws py::type_error   no array of elements of type T
/// @throws py::value_error  another shape, not in C order, or not writeable
template <typename T>
py::array_t<T, py::array::c_style> Output(const py::object& array, const char* name, const Shape& shape);

/// Of a frame.
inline Shape FrameShape() { return {basesim::kFrameHeight, basesim::kFrameWidth}; }

/// A number for each pixel of a frame, row by row; empty where Python gave None.
/// @throws as Input
std::vector<double> MapOf(const py::object& map, const char* name);

template <typename T>
gsl::span<const T> In(const py::array_t<T, py::array::c_style>& array) {
  return {array.data(), static_cast<std::size_t>(array.size())};
}

template <typename T>
gsl::span<T> Out(py::array_t<T, py::array::c_style>& array) {
  return {array.mutable_data(), static_cast<std::size_t>(array.size())};
}

template <typename T>
void MakeReadOnly(py::array_t<T>& array) {
  py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
}

/// What an object holds, without a copy: not writeable, and the object lives as long as the array does.
template <typename T>
py::array_t<T> View(const py::handle& owner, const T* values, const Shape& shape) {
  py::array_t<T> view(shape, values, owner);
  MakeReadOnly(view);
  return view;
}

}  // namespace quen::python
