// The suite's commands run by name with keyword parameters, checked against the command's
// catalogue entry before anything reaches the suite: an unknown parameter or a value of the wrong
// Python type is a TypeError, a value out of range or not among the choices a ValueError. The
// runner checks again what depends on the stores (the images and objects named).
#include <algorithm>
#include <cmath>

#include <KorvaneAPI/Commands.h>
#include <vantry_process/KrvCommandRunner.h>

#include "korvane.h"

namespace korvane_py {

namespace {

bool isA(const py::handle& value, const char* abstractType) {
    return py::isinstance(value, py::module_::import("numbers").attr(abstractType));
}

bool isBool(const py::handle& value) {
    return py::isinstance<py::bool_>(value) || py::isinstance(value, py::module_::import("numpy").attr("bool_"));
}

std::vector<std::string> splitChoices(const char* choices) {
    std::vector<std::string> parts(1);
    for (const char* c = choices; *c; ++c) {
        if (*c == '|') parts.emplace_back();
        else parts.back().push_back(*c);
    }
    return parts;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

// Checks one keyword value against its parameter and gives it as the runner reads it.
class ParameterCheck {
public:
    ParameterCheck(const std::string& command, const CProCmdParam& param, const py::handle& value)
        : m_param(param), m_value(py::reinterpret_borrow<py::object>(value)), m_prefix(command + ": parameter " + param.name) {}

    std::string text() const {
        const std::string type = m_param.type;
        if (type == "int") return integerText();
        if (type == "float") return realText();
        if (type == "bool") {
            if (!isBool(m_value)) wrongType("True or False");
            return m_value.cast<bool>() ? "true" : "false";
        }
        if (type == "image" && std::string(m_param.name) != "output" &&
            (py::isinstance<py::list>(m_value) || py::isinstance<py::tuple>(m_value)))
            return nameList();
        if (!py::isinstance<py::str>(m_value)) wrongType(type == "image" ? "an image name" : "a str");
        const std::string given = m_value.cast<std::string>();
        if (type == "string") checkChoice(given, "'" + given + "'");
        if (given.empty()) throw py::value_error(m_prefix + " is empty");
        return given;
    }

private:
    std::string integerText() const {
        if (isBool(m_value) || !isA(m_value, "Integral")) wrongType("an int");
        const py::int_ number(m_value);
        const std::string given = describe(number);
        if (m_param.choices) checkChoice(given, given);
        else checkRange(number, given);
        return given;
    }

    std::string realText() const {
        if (isBool(m_value) || !isA(m_value, "Real")) wrongType("a real number");
        const py::float_ number(m_value);
        if (!std::isfinite(number.cast<double>())) throw py::value_error(m_prefix + " must be finite, not " + describe(number));
        const std::string given = py::repr(number);
        checkRange(number, given);
        return given;
    }

    std::string nameList() const {
        std::string names;
        for (const py::handle& item : m_value) {
            if (!py::isinstance<py::str>(item)) wrongType("an image name or a list of them");
            names += (names.empty() ? "" : ",") + item.cast<std::string>();
        }
        return names;
    }

    // Compared as Python compares an int or a float with a float: exactly.
    void checkRange(const py::object& number, const std::string& given) const {
        if (number < py::float_(m_param.minimum) || number > py::float_(m_param.maximum))
            throw py::value_error(m_prefix + " = " + given + " lies outside [" + describe(py::float_(m_param.minimum)) +
                                  ", " + describe(py::float_(m_param.maximum)) + "]");
    }

    void checkChoice(const std::string& given, const std::string& shown) const {
        if (!m_param.choices) return;
        const std::vector<std::string> choices = splitChoices(m_param.choices);
        if (std::find(choices.begin(), choices.end(), given) == choices.end())
            throw py::value_error(m_prefix + " must be one of " + joined(choices) + ", not " + shown);
    }

    [[noreturn]] void wrongType(const char* expected) const {
        throw py::type_error(m_prefix + " must be " + expected + ", not " + describe(py::type::handle_of(m_value)));
    }

    const CProCmdParam& m_param;
    py::object m_value;
    std::string m_prefix;
};

// A value for a command the catalogue does not know, which the runner then refuses: booleans as
// true/false, numbers as Python writes them, a list or tuple joined by commas.
std::string uncheckedText(const std::string& name, const py::handle& value) {
    if (py::isinstance<py::bool_>(value)) return value.cast<bool>() ? "true" : "false";
    if (py::isinstance<py::str>(value)) return value.cast<std::string>();
    if (py::isinstance<py::int_>(value) || py::isinstance<py::float_>(value)) return py::repr(value);
    if (py::isinstance<py::list>(value) || py::isinstance<py::tuple>(value)) {
        std::string joinedItems;
        for (const py::handle& item : value) joinedItems += (joinedItems.empty() ? "" : ",") + uncheckedText(name, item);
        return joinedItems;
    }
    throw py::type_error("parameter " + name + " must be a str, a number, a bool or a list of names, not " +
                         describe(py::type::handle_of(value)));
}

const CProCmdParam* findParam(const CProCmd& command, const std::string& name) {
    for (const CProCmdParam& param : command.GetParams())
        if (name == param.name) return &param;
    return nullptr;
}

std::vector<KrvCommandArgument> arguments(const std::string& name, const py::kwargs& parameters) {
    const CProCmd* command = getCmdInfo(name);
    std::vector<KrvCommandArgument> result;
    for (const auto& [key, value] : parameters) {
        const std::string parameter = key.cast<std::string>();
        if (!command) {
            result.push_back({parameter, uncheckedText(parameter, value)});
            continue;
        }
        const CProCmdParam* param = findParam(*command, parameter);
        if (!param) {
            std::vector<std::string> names;
            for (const CProCmdParam& known : command->GetParams()) names.emplace_back(known.name);
            throw py::type_error(name + ": unknown parameter \"" + parameter + "\"; its parameters are " + joined(names));
        }
        result.push_back({parameter, ParameterCheck(name, *param, value).text()});
    }
    return result;
}

// True when the command ran and its outputs are stored, False when the flush callback stopped
// it; korvane.SuiteError when the suite refuses it or it fails.
bool runCommand(const std::string& name, const py::kwargs& parameters) {
    requireSession();
    const std::vector<KrvCommandArgument> checked = arguments(name, parameters);
    const LongWork work;
    return krvRunCommand(name, checked);
}

}  // namespace

void bindRunCommand(py::module_& m) {
    m.def("runCommand", &runCommand, py::arg("name"),
          "Runs the suite's command `name` with keyword parameters, e.g. runCommand('Threshold', input='a', "
          "output='b', low=10), checked against getCmdInfo(name) first: an unknown parameter or a wrong type is a "
          "TypeError, a value out of range or not among the choices a ValueError. False when the flush callback "
          "stopped it.");
}

}  // namespace korvane_py
