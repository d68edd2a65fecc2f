// The Python module korvane: the library's exported functions with Python types.
#include "korvane.h"

PYBIND11_MODULE(korvane, module) {
    module.doc() = "Drive the Korvane image-analysis suite: `with korvane.session(): ...`";
    korvane_py::bindErrors(module);
    korvane_py::bindSession(module);
    korvane_py::bindObjects(module);
    korvane_py::bindMeasuresAndCommands(module);
    korvane_py::bindCallbacks(module);
    korvane_py::bindImages(module);
    korvane_py::bindRunCommand(module);
    korvane_py::bindMeasure(module);
}
