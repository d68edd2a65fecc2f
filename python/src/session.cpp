// The suite's start and end: `with korvane.session(settings):`, or initKorvaneAPI and
// endKorvaneAPI by name. The module keeps whether a session runs, so that no function reaches a
// stopped suite.
#include <atomic>

#include <KorvaneAPI/Core.h>

#include "korvane.h"

namespace korvane_py {

namespace {

bool sessionRunning = false;
std::atomic<int> longWorks{0};

// None, a str or an os.PathLike: the settings folder, or none.
std::optional<std::string> settingsPath(const py::object& settings) {
    if (settings.is_none()) return std::nullopt;
    return py::str(py::module_::import("os").attr("fspath")(settings)).cast<std::string>();
}

void start(const py::object& settings) {
    if (sessionRunning) throw ModuleError("korvane: a session is already running");
    const std::optional<std::string> path = settingsPath(settings);
    try {
        initKorvaneAPI(path ? path->c_str() : nullptr);
    } catch (...) {
        endKorvaneAPI();  // the steps that were done are undone before the next start
        throw;
    }
    sessionRunning = true;
}

void end() {
    requireSession();
    if (longWorks > 0) throw ModuleError("korvane: the session can't end while work runs in another thread");
    sessionRunning = false;
    forgetResultTarget();
    endKorvaneAPI();
}

class Session {
public:
    explicit Session(py::object settings) : m_settings(std::move(settings)) {}
    Session& enter() {
        start(m_settings);
        return *this;
    }

private:
    py::object m_settings;
};

}  // namespace

void requireSession() {
    if (!sessionRunning)
        throw ModuleError("korvane: no session is running; call the library inside `with korvane.session():`");
}

LongWork::LongWork() {
    ++longWorks;
    m_released.emplace();
}

LongWork::~LongWork() {
    m_released.reset();
    --longWorks;
}

void bindSession(py::module_& module) {
    py::class_<Session>(module, "session",
                        "Starts the suite on entry (settings: the settings folder, None for none) and ends "
                        "it on exit. One session at a time.")
        .def(py::init<py::object>(), py::arg("settings") = py::none())
        .def("__enter__", &Session::enter, py::return_value_policy::reference_internal)
        .def("__exit__", [](Session&, const py::args&) { end(); });
    module.def("initKorvaneAPI", &start, py::arg("settings") = py::none(),
               apiDoc("initKorvaneAPI", "Starts the suite; prefer `with korvane.session(settings):`."));
    module.def("endKorvaneAPI", &end, apiDoc("endKorvaneAPI", "Ends the suite started by initKorvaneAPI."));
    module.def("getExtraMemUsage", inSession(&getExtraMemUsage), apiDoc("getExtraMemUsage"));
    module.def("setExtraMemUsage", inSession(&setExtraMemUsage), py::arg("value"), apiDoc("setExtraMemUsage"));
    module.def("in_session", [] { return sessionRunning; }, "True while a session runs.");
}

}  // namespace korvane_py
