#pragma once

#include "common/checks/checks.hpp"

namespace quen::centroiders {

using common::InDigits;
using common::RequireAboveZero;
using common::RequireInRange;

}  // namespace quen::centroiders
