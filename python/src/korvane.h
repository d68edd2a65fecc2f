// What the parts of the Python module share: the errors it raises itself and the check that a
// session runs before any call reaches the suite.
#pragma once
#include <optional>
#include <stdexcept>
#include <string>

#include <pybind11/pybind11.h>

namespace korvane_py {

namespace py = pybind11;

// A misuse the module finds before calling the library; raised as korvane.Error without file
// and line.
class ModuleError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// str(object), for messages.
inline std::string describe(const py::handle& object) { return py::str(object).cast<std::string>(); }

void bindErrors(py::module_& module);
void bindSession(py::module_& module);
void bindObjects(py::module_& module);
void bindMeasuresAndCommands(py::module_& module);
void bindCallbacks(py::module_& module);
void bindImages(py::module_& module);
void bindRunCommand(py::module_& module);
void bindMeasure(py::module_& module);

// Throws ModuleError unless a session runs: a stopped suite is never called.
void requireSession();

// Long work in the suite: runs with the GIL released, so that other Python threads (and the
// callbacks) run meanwhile, and keeps the session from ending under it. Made after requireSession.
class LongWork {
public:
    LongWork();
    ~LongWork();
    LongWork(const LongWork&) = delete;
    LongWork& operator=(const LongWork&) = delete;

private:
    std::optional<py::gil_scoped_release> m_released;
};

// Runs `body` with the GIL from a thread of the suite; a Python error in it goes to
// sys.unraisablehook as `what`, and `fallback` is the answer then (and once the interpreter is gone).
template <class Result, class Body>
Result withGil(const char* what, Result fallback, Body body) {
    if (!Py_IsInitialized()) return fallback;
    py::gil_scoped_acquire gil;
    try {
        return body();
    } catch (py::error_already_set& error) {
        error.discard_as_unraisable(what);
    } catch (const std::exception& exception) {
        PyErr_SetString(PyExc_RuntimeError, exception.what());
        py::error_already_set().discard_as_unraisable(what);
    }
    return fallback;
}

// TypeError unless `callable` is callable or None.
void requireCallableOrNone(const py::object& callable, const char* what);

// Forgets the session's result target (the session ends).
void forgetResultTarget();

// A named tuple type `name` with `fields`, made an attribute of the module.
py::object namedTuple(py::module_& module, const char* name, const char* fields);

// The docstring of the library's function `name`: `note`, then the function's text in docs/api.md.
const char* apiDoc(const char* name, const char* note = "");

// A function of the library that needs a running session, as a callable for py::module_::def.
template <class Result, class... Args>
auto inSession(Result (*function)(Args...)) {
    return [function](Args... args) -> Result {
        requireSession();
        return function(std::forward<Args>(args)...);
    };
}

}  // namespace korvane_py
