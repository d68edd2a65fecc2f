// The suite's start and end: `with korvane.session(settings):`, or initKorvaneAPI and
// endKorvaneAPI by name. The module keeps whether a session runs, so that no function reaches a
// stopped suite.
#include <atomic>
#include <climits>

#include <KorvaneAPI/Core.h>
#include <vantry_util/KrvLogger.h>

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

// A level as the suite's configuration writes it ("Debug", ..., any letter case), a number, or
// -1 for the ancestor's.
int logLevel(const py::object& level) {
    if (py::isinstance<py::str>(level)) {
        const int parsed = parseKrvLogLevel(level.cast<std::string>());
        if (parsed < 0) throw py::value_error("not a log level: " + describe(level));
        return parsed;
    }
    if (py::isinstance<py::bool_>(level) || !py::isinstance<py::int_>(level))
        throw py::type_error("a log level is an int or one of 'Debug', 'Info', 'Warn', 'Error', 'Off', not " +
                             describe(level));
    const long long value = level.cast<long long>();
    if (value < -1 || value > INT_MAX) throw py::value_error("a log level lies from -1 to " + std::to_string(INT_MAX));
    return static_cast<int>(value);
}

void bindLogger(py::module_& module) {
    py::class_<KrvLogger>(module, "Logger", "The library's logger: its name and level (usable outside a session).")
        .def_property_readonly("name", &KrvLogger::getName)
        .def_property(
            "level", &KrvLogger::getLogLevel, [](KrvLogger& logger, const py::object& level) {
                logger.setLogLevel(logLevel(level));
            },
            "Its own level (Debug 0, Info 20000, Warn 30000, Error 40000, Off 60000), or -1 for its "
            "ancestor's; set with an int or a level's name.")
        .def_property_readonly("effectiveLevel", &KrvLogger::getEffectiveLevel)
        .def(
            "isEnabledFor", [](const KrvLogger& logger, const py::object& level) {
                return logLevel(level) >= logger.getEffectiveLevel();
            },
            py::arg("level"));
    module.def("getKorvaneAPILogger", &getKorvaneAPILogger, py::return_value_policy::reference,
               apiDoc("getKorvaneAPILogger", "A korvane.Logger; the logger lives as long as the process."));
}

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
    bindLogger(module);
    module.def("in_session", [] { return sessionRunning; }, "True while a session runs.");
}

}  // namespace korvane_py
