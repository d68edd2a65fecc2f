// The library's exceptions as Python exceptions: KorvaneAPIException is korvane.Error (a
// RuntimeError), any other exception of the suite korvane.SuiteError (a korvane.Error); both carry
// the file and line that raised them. The module's own errors have None for both.
#include <KorvaneAPI/KorvaneAPIException.h>

#include "korvane.h"

namespace korvane_py {

namespace {

// Made once with the module and kept for the life of the process.
py::exception<KorvaneAPIException>* errorType = nullptr;
py::exception<KrvBaseException>* suiteErrorType = nullptr;

void raise(const py::object& type, const std::string& message, py::object file, py::object line) {
    py::object error = type(message);
    error.attr("file") = std::move(file);
    error.attr("line") = std::move(line);
    PyErr_SetObject(type.ptr(), error.ptr());
}

void raiseFromSuite(const py::object& type, const KrvBaseException& exception) {
    raise(type, exception.getMessage(), py::str(exception.getFile()), py::int_(exception.getLine()));
}

void translate(std::exception_ptr pending) {
    try {
        if (pending) std::rethrow_exception(pending);
    } catch (const ModuleError& error) {
        raise(*errorType, error.what(), py::none(), py::none());
    } catch (const KorvaneAPIException& exception) {
        raiseFromSuite(*errorType, exception);
    } catch (const KrvBaseException& exception) {
        raiseFromSuite(*suiteErrorType, exception);
    }
}

}  // namespace

void bindErrors(py::module_& module) {
    errorType = new py::exception<KorvaneAPIException>(module, "Error", PyExc_RuntimeError);
    suiteErrorType = new py::exception<KrvBaseException>(module, "SuiteError", errorType->ptr());
    errorType->doc() = py::str(
        "A failure of the library (KorvaneAPIException) or a misuse of the module; .file and .line "
        "name the source line that raised it (None for the module's own errors).");
    suiteErrorType->doc() = py::str("An exception of the suite (KrvBaseException), passed through the library.");
    errorType->attr("file") = py::none();
    errorType->attr("line") = py::none();
    py::register_exception_translator(&translate);
}

}  // namespace korvane_py
