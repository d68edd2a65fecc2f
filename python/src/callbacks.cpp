// The client's callbacks as Python callables. The library keeps plain function pointers: the
// module gives it three hooks of its own, which take the GIL and call the stored callables. A
// Python exception raised in a callback goes to sys.unraisablehook and never reaches the suite.
#include <KorvaneAPI/Callbacks.h>
#include <vantry_data/CDatSeg.h>

#include "korvane.h"

namespace korvane_py {

namespace {

// Read and written with the GIL held; None when the client set none. Emptied at exit, before
// the interpreter goes.
struct Callables {
    py::object flushEvents = py::none();
    py::object progressMsg = py::none();
    py::object progressRatio = py::none();
};
Callables* callables = nullptr;

// Calls the stored callable through `body`; `fallback` when there is none or it fails.
template <class Result, class Body>
Result withCallable(py::object Callables::*slot, const char* what, Result fallback, Body body) {
    return withGil(what, fallback, [&] {
        const py::object callable = callables->*slot;  // a reference of its own: another thread may replace it
        return callable.is_none() ? fallback : body(callable);
    });
}

// Work goes on unless the callable answers a false value other than None.
bool flushEventsHook() {
    return withCallable(&Callables::flushEvents, "korvane flush events callback", true, [](const py::object& callable) {
        const py::object answer = callable();
        return answer.is_none() || static_cast<bool>(py::bool_(answer));
    });
}

void progressMsgHook(const std::string& message) {
    withCallable(&Callables::progressMsg, "korvane progress message callback", 0, [&](const py::object& callable) {
        callable(py::str(message));
        return 0;
    });
}

void progressRatioHook(float ratio) {
    withCallable(&Callables::progressRatio, "korvane progress ratio callback", 0, [&](const py::object& callable) {
        callable(ratio);
        return 0;
    });
}

// Stores `callable` (None forgets it) and installs the module's hook, which stays installed:
// the library's pointer never changes under work running in another thread.
template <class Hook>
void setCallable(py::object Callables::*slot, const py::object& callable, void (*install)(Hook), Hook hook) {
    requireSession();
    requireCallableOrNone(callable, "a callback");
    callables->*slot = callable;
    install(hook);
}

template <class Hook>
void defSetter(py::module_& module, const char* name, py::object Callables::*slot, void (*install)(Hook), Hook hook,
               const char* note) {
    module.def(
        name, [slot, install, hook](const py::object& callable) { setCallable(slot, callable, install, hook); },
        py::arg("callback"), apiDoc(name, note));
}

void forgetCallables() {
    callables->flushEvents = py::none();
    callables->progressMsg = py::none();
    callables->progressRatio = py::none();
}

// The suite's own example of long work, for tests and examples: `rings` closed polygons appended
// to the segment object `name`, with progress reports and a flush between rings. The number of
// rings appended (fewer when the flush callback stopped the work); -1 for an unknown object.
int appendRings(const std::string& name, int rings, int sides, float cx, float cy, float spacing) {
    requireSession();
    const LongWork work;
    CDatSeg* segment = CDatSegHandler::m_pInstance->FindObj(CKrvString(name));
    return segment ? segment->AppendRings(rings, sides, cx, cy, spacing) : -1;
}

}  // namespace

void requireCallableOrNone(const py::object& callable, const char* what) {
    if (!callable.is_none() && !PyCallable_Check(callable.ptr()))
        throw py::type_error(std::string(what) + " must be callable or None, not " +
                             describe(py::type::handle_of(callable)));
}

void bindCallbacks(py::module_& module) {
    callables = new Callables;
    py::module_::import("atexit").attr("register")(py::cpp_function(&forgetCallables));
    defSetter(module, "setFlushEventsCB", &Callables::flushEvents, &setFlushEventsCB, &flushEventsHook,
              "callback() is asked between steps of long work; a false answer other than None stops it. None "
              "forgets it.");
    defSetter(module, "setProgressMsgCB", &Callables::progressMsg, &setProgressMsgCB, &progressMsgHook,
              "callback(message: str) receives the suite's progress messages. None forgets it.");
    defSetter(module, "setProgressRatioCB", &Callables::progressRatio, &setProgressRatioCB, &progressRatioHook,
              "callback(ratio: float) receives the ratio of each progress message. None forgets it.");
    py::module_ suite = module.def_submodule("_suite", "The suite's own work, for tests and examples.");
    suite.def("appendRings", &appendRings, py::arg("name"), py::arg("rings"), py::arg("sides"), py::arg("cx"),
              py::arg("cy"), py::arg("spacing"));
}

}  // namespace korvane_py
