#include "pim/helper.hpp"

#include "pim/configuration_path.hpp"

std::string pim::Helper::FindFile(const std::string& name) { return FindOnConfigurationPath(name); }
