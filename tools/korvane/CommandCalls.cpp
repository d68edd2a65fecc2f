// Calls of the command catalogue and of the suite's progress reporting.
#include <cmath>
#include <limits>
#include <ostream>

#include <KorvaneAPI/Commands.h>
#include <vantry_process/CProCmd.h>
#include <vantry_process/KrvCommandRunner.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/CKrvSettingDoc.h>

#include "Calls.h"
#include "ProgressBar.h"

namespace korvane {

namespace {

bool bounded(double limit) { return std::fabs(limit) < std::numeric_limits<double>::max(); }

// What a parameter may hold beyond its type: "one of otsu|isodata", "1 to 31", "from -1".
std::string allowed(const CProCmdParam& p) {
    if (p.choices != nullptr) return std::string("one of ") + p.choices;
    if (bounded(p.minimum) && bounded(p.maximum)) return shortest(p.minimum) + " to " + shortest(p.maximum);
    if (bounded(p.minimum)) return "from " + shortest(p.minimum);
    if (bounded(p.maximum)) return "up to " + shortest(p.maximum);
    return {};
}

// "name (type, default value, allowed values)" per parameter.
std::string parameters(const CProCmd& command) {
    std::string text;
    for (const CProCmdParam& p : command.GetParams()) {
        if (!text.empty()) text += ", ";
        const std::string range = allowed(p);
        text += std::string(p.name) + " (" + p.type + (*p.defaultValue ? std::string(", ") + p.defaultValue : "") +
                (range.empty() ? "" : "; " + range) + ")";
    }
    return text;
}

// {"name", "category", "description", "parameters": [{"name", "type", "default"}]}.
Json commandRecord(const CProCmd& command) {
    Json params = Json::array();
    for (const CProCmdParam& p : command.GetParams()) {
        Json param{{"name", p.name}, {"type", p.type}};
        if (*p.defaultValue) param["default"] = p.defaultValue;
        if (!allowed(p).empty()) param["allowed"] = allowed(p);
        params.push_back(std::move(param));
    }
    return {{"name", command.GetName().m_str},
            {"category", command.GetCategory().m_str},
            {"description", command.GetDescription().m_str},
            {"parameters", std::move(params)}};
}

Output commandInfo(const Args& args) {
    const CProCmd* command = getCmdInfo(args[0]);
    if (command == nullptr) throw CallFailed("getCmdInfo failed: no command " + args[0]);
    return {{command->GetName().m_str + " [" + command->GetCategory().m_str + "]", command->GetDescription().m_str,
             "parameters: " + parameters(*command)},
            commandRecord(*command)};
}

Output lastProgress(const Args&) {
    const ProgressSeen& seen = progressSeen();
    if (seen.messages == 0) return {};
    return {{seen.message, shortest(seen.ratio)}, {{"message", seen.message}, {"ratio", jsonNumber(seen.ratio)}}};
}

// "name=value" words as the runner's arguments (the value may hold '=' and be empty).
std::vector<KrvCommandArgument> commandArguments(const Args& args) {
    std::vector<KrvCommandArgument> arguments;
    for (std::size_t i = 1; i < args.size(); ++i) {
        const std::size_t equals = args[i].find('=');
        if (equals == std::string::npos || equals == 0)
            throw ScriptError("\"" + args[i] + "\" is not PARAM=VALUE");
        arguments.push_back({args[i].substr(0, equals), args[i].substr(equals + 1)});
    }
    return arguments;
}

// Runs a command of the catalogue with the progress bar; Ctrl-C stops it (the flush callback
// answers false), and the suite then stores nothing.
Output runCommand(const Args& args) {
    const std::vector<KrvCommandArgument> arguments = commandArguments(args);
    resetProgressSeen();
    bool ran = false;
    try {
        ran = krvRunCommand(args[0], arguments);
    } catch (const KrvBaseException& error) {
        endProgressBar();
        throw CallFailed("runCommand failed: " + error.getMessage());
    }
    endProgressBar();
    if (!ran) throw CallFailed("runCommand failed: " + args[0] + " was stopped; nothing stored");
    return {};
}

}  // namespace

void printCommands(std::ostream& out, bool json) {
    std::string category;
    for (const std::string& name : getCmdNameColl()) {
        const CProCmd* command = getCmdInfo(name);
        if (json) {
            Json object = jsonObject("command");
            object.update(command == nullptr ? Json{{"name", name}} : commandRecord(*command));
            writeJson(out, object);
            continue;
        }
        if (command == nullptr) {
            out << "  " << name << '\n';
            continue;
        }
        if (command->GetCategory().m_str != category) {
            category = command->GetCategory().m_str;
            out << category << '\n';
        }
        out << "  " << name << ": " << command->GetDescription().m_str << "\n      " << parameters(*command) << '\n';
    }
}

void addCommandCalls(CallTable& table) {
    table.add("getCmdNameColl", {"getCmdNameColl", "the names of the suite's processing commands", 0, 0,
                                 [](const Args&) { return said(getCmdNameColl()); }});
    table.add("getCmdInfo", {"getCmdInfo NAME", "a command's category, description and parameters", 1, 1,
                             commandInfo});
    table.add("runCommand", {"runCommand COMMAND [PARAM=VALUE]...",
                             "(suite) runs a command of the catalogue on stored images and objects, with progress", 1,
                             kAnyNumber, runCommand});
    table.add("lastProgress", {"lastProgress", "the last progress message and ratio the suite reported (if any)", 0, 0,
                               lastProgress});
    table.add("setProgress", {"setProgress ON", "(suite) turns the settings' progress switch on (1) or off (0)", 1, 1,
                              [](const Args& args) {
                                  CKrvSettingDoc::getInstance().setProgress(toBool(args[0], "ON") ? 1 : 0);
                                  resetProgressSeen();
                                  return Output{};
                              }});
}

}  // namespace korvane
