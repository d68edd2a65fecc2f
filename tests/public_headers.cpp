// Every public header, compiled on its own terms: a client builds them with strict warnings.
#include <KorvaneAPI/KorvaneAPI.h>

#include <string>

// The descriptions of measures and commands are complete types with the umbrella header alone.
std::string describeForClient(const std::string& measure, const std::string& command) {
    MeasureInfo info;
    std::string text = getMsrInfo(measure, info) ? info.name + ": " + info.description : std::string();
    if (const CProCmd* found = getCmdInfo(command)) text += found->GetName().m_str + ": " + found->GetDescription().m_str;
    return text;
}
