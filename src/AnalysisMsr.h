// What the measurement sources share.
#pragma once
#include <string>

namespace kapi {
// The analysis handler's name for its measure service; kept for the suite, read by nothing here.
static const std::string kAnalysisMsr = "AnalysisMsr";  // NOLINT: one copy per source file
}  // namespace kapi
