#include "tools/quen-shs/src/verbs/verbs.hpp"

void quen_shs::AddVerbs(CommandLine& line) {
  AddCalibrate(line);
  AddCheck(line);
  AddFrame(line);
  AddMeasure(line);
  AddView(line);
  AddScore(line);
  AddLoop(line);
  AddManual(line);
  AddCompletion(line);
}
