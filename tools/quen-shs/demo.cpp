#include "tools/quen-shs/verbs/verbs.hpp"

namespace quen::tool {

void AddVerbs(CommandLine& line) {
  AddCalibrate(line);
  AddLoop(line);
}

}  // namespace quen::tool
