#include "tools/quen-shs/verbs/verbs.hpp"

namespace quen::tool {

void AddVerbs(CommandLine& line) {
  for (const auto add : {AddCalibrate, AddCheck, AddFrame, AddMeasure, AddView, AddScore, AddLoop, AddCampaign,
                         AddServe, AddDetector, AddWatch, AddManual, AddCompletion}) {
    add(line);
  }
}

}  // namespace quen::tool
