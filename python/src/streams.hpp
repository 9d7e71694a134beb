#pragma once

#include <pybind11/pybind11.h>

namespace quen::python {

/// Shared-memory image streams: the end that reads one, and the end that makes it.
void BindStreams(pybind11::module_& module);

}  // namespace quen::python
