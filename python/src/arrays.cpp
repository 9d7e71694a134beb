#include "python/src/arrays.hpp"

#include <algorithm>
#include <string>

namespace quen::python {
namespace {

std::string InWords(const py::handle& shape_or_type) { return py::str(shape_or_type); }

/// As Python writes a shape, with "any" where an axis may have any length.
std::string InWords(const Shape& shape) {
  std::string text;
  for (const py::ssize_t length : shape) {
    text.append(text.empty() ? "(" : ", ").append(length == kAnyLength ? "any" : std::to_string(length));
  }
  return text + (shape.size() == 1 ? ",)" : ")");
}

void RequireShape(const py::array& array, const char* name, const Shape& shape) {
  const auto fits = [](py::ssize_t wanted, py::ssize_t found) { return wanted == kAnyLength || wanted == found; };
  if (std::equal(shape.begin(), shape.end(), array.shape(), array.shape() + array.ndim(), fits)) return;
  const bool has_swapped_axes =
      shape.size() > 1 && std::equal(shape.rbegin(), shape.rend(), array.shape(), array.shape() + array.ndim(), fits);
  throw py::value_error(std::string(name) + ": expected shape " + InWords(shape) + ", found " +
                        InWords(array.attr("shape")) + (has_swapped_axes ? "; give its transpose, .T" : ""));
}

/// @throws py::value_error  lists of different lengths
py::array AnyArray(const py::object& values, const char* name) {
  try {
    return py::module_::import("numpy").attr("asarray")(values);
  } catch (const py::error_already_set& error) {
    if (!error.matches(PyExc_ValueError)) throw;
    throw py::value_error(std::string(name) + ": expected an array, found none: " + InWords(error.value()));
  }
}

/// Only arrays of a derived class may have masks, and few calls are given one.
/// @throws py::value_error  elements of it are masked
void RequireNoMask(const py::object& values, const char* name) {
  if (!py::isinstance<py::array>(values) || Py_TYPE(values.ptr()) == py::detail::npy_api::get().PyArray_Type_) return;
  if (!py::module_::import("numpy.ma").attr("is_masked")(values).template cast<bool>()) return;
  throw py::value_error(std::string(name) + ": expected an array without a mask, found one with masked elements");
}

/// What to do with numbers of another type, where something can be done.
std::string Remedy(const py::dtype& found, const py::dtype& wanted) {
  if (wanted.kind() != 'u') return {};
  if (found.kind() == 'i' && found.itemsize() == wanted.itemsize()) {
    return "; .view(" + InWords(wanted) + ") has the same bits";
  }
  if (std::string("iuf").find(found.kind()) == std::string::npos) return {};
  return "; if they are whole numbers from 0 to " + std::to_string((1L << (8 * wanted.itemsize())) - 1) +
         ", give .astype(" + InWords(wanted) + ")";
}

bool IsAligned(const py::array& array) {
  return py::detail::check_flags(array.ptr(), py::detail::npy_api::NPY_ARRAY_ALIGNED_);
}

}  // namespace

template <typename T>
py::array_t<T, py::array::c_style> Input(const py::object& values, const char* name, const Shape& shape) {
  using Array = py::array_t<T, py::array::c_style>;
  RequireNoMask(values, name);
  if (py::isinstance<Array>(values) && IsAligned(py::reinterpret_borrow<py::array>(values))) {
    auto array = py::reinterpret_borrow<Array>(values);
    RequireShape(array, name, shape);
    return array;
  }
  const py::module_ numpy = py::module_::import("numpy");
  const py::array any = AnyArray(values, name);
  const py::dtype wanted = py::dtype::of<T>();
  if (!numpy.attr("can_cast")(any.dtype(), wanted, "safe").template cast<bool>()) {
    throw py::type_error(std::string(name) + ": expected numbers that " + InWords(wanted) +
                         " holds without loss, found " + InWords(any.dtype()) + Remedy(any.dtype(), wanted));
  }
  RequireShape(any, name, shape);
  return Array(numpy.attr("require")(any, wanted, "CA"));
}

template <typename T>
py::array_t<T, py::array::c_style> Output(const py::object& array, const char* name, const Shape& shape) {
  if (!py::isinstance<py::array_t<T>>(array)) {
    const std::string found = py::isinstance<py::array>(array)
                                  ? "an array of " + InWords(py::reinterpret_borrow<py::array>(array).dtype())
                                  : InWords(py::type::of(array).attr("__name__"));
    throw py::type_error(std::string(name) + ": expected an array of " + InWords(py::dtype::of<T>()) + ", found " +
                         found);
  }
  const auto any = py::reinterpret_borrow<py::array>(array);
  RequireShape(any, name, shape);
  if (!any.writeable()) throw py::value_error(std::string(name) + ": expected an array that can be written to");
  if (!py::isinstance<py::array_t<T, py::array::c_style>>(array) || !IsAligned(any)) {
    throw py::value_error(std::string(name) + ": expected an array in C order, row by row without gaps");
  }
  return py::reinterpret_borrow<py::array_t<T, py::array::c_style>>(array);
}

std::vector<double> MapOf(const py::object& map, const char* name) {
  if (map.is_none()) return {};
  const auto array = Input<double>(map, name, FrameShape());
  return {array.data(), array.data() + array.size()};
}

template py::array_t<double, py::array::c_style> Input(const py::object&, const char*, const Shape&);
template py::array_t<std::uint8_t, py::array::c_style> Input(const py::object&, const char*, const Shape&);
template py::array_t<std::uint16_t, py::array::c_style> Input(const py::object&, const char*, const Shape&);
template py::array_t<double, py::array::c_style> Output(const py::object&, const char*, const Shape&);
template py::array_t<std::uint16_t, py::array::c_style> Output(const py::object&, const char*, const Shape&);

}  // namespace quen::python
