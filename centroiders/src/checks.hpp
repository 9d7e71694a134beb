#pragma once

#include "common/checks/checks.hpp"

namespace quen::centroiders {

using common::InDigits;
using common::RequireElementsWithin;
using common::RequireWithin;

}  // namespace quen::centroiders
