#pragma once

#include <pybind11/pybind11.h>

namespace quen::python {

void BindCampaign(pybind11::module_& module);

}  // namespace quen::python
