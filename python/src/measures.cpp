// Measures and commands with Python types: parameters and directions as NumPy arrays, the
// suite's descriptions as named tuples.
#include <optional>

#include <KorvaneAPI/Commands.h>
#include <KorvaneAPI/Measures.h>

#include <pybind11/stl.h>

#include "arrays.h"

namespace korvane_py {

namespace {

// The named tuple types, made with the module and kept for the life of the process.
struct Records {
    py::object measureInfo;
    py::object cmdInfo;
    py::object cmdParam;
};
Records* records = nullptr;

eMsrUnitDim unitDimension(int value) {
    if (value < eMsrUnitDim0 || value > eMsrUnitDim7)
        throw py::value_error("unitDim must lie from 0 to 7, not " + std::to_string(value));
    return static_cast<eMsrUnitDim>(value);
}

std::optional<py::object> measureInfo(const std::string& name) {
    MeasureInfo info;
    if (!getMsrInfo(name, info)) return std::nullopt;
    return records->measureInfo(info.name, info.isUser, info.unitDim, info.dimension, info.nbParams,
                                info.description);
}

py::object textOrNone(const char* text) { return text ? py::object(py::str(text)) : py::object(py::none()); }

std::optional<py::object> commandInfo(const std::string& name) {
    const CProCmd* command = getCmdInfo(name);
    if (!command) return std::nullopt;
    py::list params;
    for (const CProCmdParam& param : command->GetParams())
        params.append(records->cmdParam(textOrNone(param.name), textOrNone(param.type),
                                        textOrNone(param.defaultValue), param.minimum, param.maximum,
                                        textOrNone(param.choices)));
    return records->cmdInfo(command->GetName().m_str, command->GetCategory().m_str,
                            command->GetDescription().m_str, py::tuple(params));
}

// The polar angles in row 0, the azimuths in row 1.
py::array_t<float> feret3dAngles(int n) {
    std::vector<float> angles;
    {
        const LongWork work;  // the progress callback takes the GIL again
        angles = getUniformFeret3dAngles(n);
    }
    py::array_t<float> flat = toArray(angles);
    return flat.reshape({py::ssize_t{2}, static_cast<py::ssize_t>(angles.size() / 2)});
}

void bindUserMeasures(py::module_& m) {
    m.def("createUsrMsrByFormula", inSession(+[](const std::string& name, const std::string& formula, int unitDim) {
              return createUsrMsrByFormula(name, formula, unitDimension(unitDim));
          }),
          py::arg("name"), py::arg("formula"), py::arg("unitDim"),
          apiDoc("createUsrMsrByFormula", "Defines a user measure by a formula; unitDim from 0 to 7."));
    m.def("createUsrMsrByIPFunction", inSession(+[](const std::string& name, const std::string& function, int unitDim) {
              return createUsrMsrByIPFunction(name, function, unitDimension(unitDim));
          }),
          py::arg("name"), py::arg("function"), py::arg("unitDim"),
          apiDoc("createUsrMsrByIPFunction",
                 "Defines a user measure by an IP function of the suite; unitDim from 0 to 7."));
    m.def("getUsrMsrFormula", inSession(&getUsrMsrFormula), py::arg("name"), apiDoc("getUsrMsrFormula"));
    m.def("getUsrMsrList", inSession(&getUsrMsrList),
          apiDoc("getUsrMsrList", "The user measures, without the reserved ones."));
    m.def("removeUsrMsr", inSession(&removeUsrMsr), py::arg("name"), apiDoc("removeUsrMsr"));
    m.def("removeAllUsrMsr", inSession(&removeAllUsrMsr), apiDoc("removeAllUsrMsr"));
}

void bindMeasures(py::module_& m) {
    m.def("getMsrInfo", inSession(&measureInfo), py::arg("name"),
          apiDoc("getMsrInfo", "The suite's description of a measure as a MeasureInfo; None for an unknown one."));
    m.def("getMsrParams", inSession(+[](const std::string& name) { return toArray(getMsrParams(name)); }),
          py::arg("name"),
          apiDoc("getMsrParams", "The parameter values of a native measure as a float32 array; empty on failure."));
    m.def("setMsrParams", inSession(+[](const std::string& name, const py::object& params) {
              return setMsrParams(name, floatValues(params, "params"));
          }),
          py::arg("name"), py::arg("params"),
          apiDoc("setMsrParams", "Gives a native measure new parameter values (1-D real numbers)."));
    m.def("getNatMsrList", inSession(&getNatMsrList), apiDoc("getNatMsrList", "The native measures."));
    m.def("getUniformFeret3dAngles", inSession(&feret3dAngles), py::arg("n"),
          apiDoc("getUniformFeret3dAngles",
                 "n directions over the half sphere in degrees, a float32 array of shape (2, count): the "
                 "polar angles, then the azimuths. Raises korvane.Error for n < 1."));
    m.def("setFeret3dMsrParams", inSession(+[](int n) {
              const LongWork work;
              return setFeret3dMsrParams(n);
          }),
          py::arg("n"), apiDoc("setFeret3dMsrParams", "Makes n uniform directions the parameters of Length3d."));
}

void bindCommands(py::module_& m) {
    m.def("getCmdNameColl", inSession(&getCmdNameColl),
          apiDoc("getCmdNameColl", "The names of the suite's commands, in the suite's order."));
    m.def("getCmdInfo", inSession(&commandInfo), py::arg("name"),
          apiDoc("getCmdInfo",
                 "The suite's description of a command as a CmdInfo (its params a tuple of CmdParam); "
                 "None for an unknown one."));
}

}  // namespace

py::object namedTuple(py::module_& m, const char* name, const char* fields) {
    py::object type = py::module_::import("collections").attr("namedtuple")(name, fields);
    type.attr("__module__") = m.attr("__name__");
    m.attr(name) = type;
    return type;
}

void bindMeasuresAndCommands(py::module_& module) {
    records = new Records{
        namedTuple(module, "MeasureInfo", "name isUser unitDim dimension nbParams description"),
        namedTuple(module, "CmdInfo", "name category description params"),
        namedTuple(module, "CmdParam", "name type defaultValue minimum maximum choices")};
    bindUserMeasures(module);
    bindMeasures(module);
    bindCommands(module);
}

}  // namespace korvane_py
