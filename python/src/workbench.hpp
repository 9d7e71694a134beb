#pragma once

#include <pybind11/pybind11.h>

namespace quen::python {

void BindWorkbench(pybind11::module_& module);

}  // namespace quen::python
