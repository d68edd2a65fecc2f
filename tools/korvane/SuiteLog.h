// What the tool reads from the suite's log: a refused formula's position and reason, which the
// suite writes on its formula logger ("Korvane.Formula") and the failure message repeats, and the
// data service's reason for refusing an image file.
#pragma once
#include <string>

#include "ScriptReader.h"

namespace korvane {

// Listens to the formula logger (at Debug at least, where it writes refusals) until stopped.
void watchFormulaRefusals();
void stopWatchingFormulaRefusals();
void forgetFormulaRefusal();
// The last refusal since forgetFormulaRefusal, "at byte 3: unknown name 'Q'", without the
// formula when it is one of the call's arguments; empty when there was none.
std::string formulaRefusal(const Args& args);

// The last Error line of the data service ("Korvane.Data") or of the stopped suite ("Korvane")
// since forgetDataError: the reason an image file was refused.
void forgetDataError();
std::string dataError();

}  // namespace korvane
