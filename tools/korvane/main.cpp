// korvane: drives KorvaneAPI from scripts. Starts the suite, runs the calls of a script (or of an
// interactive shell) one per line, prints their results, and stops the suite again.
// Exit status: 0 success, 1 a line failed (or standard output could not be written), 2 a usage
// error: bad options, a script or settings folder that cannot be read, a suite that cannot start.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <boost/dll/runtime_symbol_info.hpp>
#include <boost/filesystem.hpp>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvLogger.h>

#include "Calls.h"
#include "ProgressBar.h"
#include "Script.h"
#include "Shell.h"
#include "SuiteLog.h"

namespace {

namespace fs = boost::filesystem;

constexpr int kFailed = 1;
constexpr int kUsage = 2;

// A failure before or outside the script's lines: the status it ends the tool with and the
// message ("korvane: " on standard error, or an error object with --json).
struct Failure {
    int status;
    std::string message;
};

// The command line: the options, the subcommand chosen and its arguments.
struct Options {
    std::string settings;
    std::string logLevel;
    bool keepGoing = false;
    bool quiet = false;
    bool json = false;
    std::string script;
    std::string helpCall;
    int feretCount = 0;
    bool feretVectors = false;
    std::string feretSvgFile;
    struct Measure {
        std::string labels, grey, group, measures, setup, csv, json;
        int directions = 0;
    } measure;
    std::string subcommand;
};

// The settings folder: --settings, else the installed share/korvane/settings beside the
// executable, else the source tree's (a build that was not installed).
std::string findSettings(const std::string& given) {
    boost::system::error_code error;
    if (!given.empty()) {
        if (!fs::exists(given, error)) throw Failure{kUsage, "settings folder " + given + " does not exist"};
        if (!fs::is_directory(given, error)) throw Failure{kUsage, "settings folder " + given + " is not a folder"};
        return given;
    }
    const fs::path installed = boost::dll::program_location().parent_path().parent_path() / "share/korvane/settings";
    if (fs::is_directory(installed, error)) return installed.string();
    return KORVANE_SOURCE_SETTINGS;
}

// The script's stream; a folder, a missing or an unreadable file is a usage error with the reason.
std::ifstream openScript(const std::string& file) {
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0) throw Failure{kUsage, "cannot read " + file + ": " + std::strerror(errno)};
    if (S_ISDIR(info.st_mode)) throw Failure{kUsage, "cannot read " + file + ": " + std::strerror(EISDIR)};
    std::ifstream in(file);
    if (!in) throw Failure{kUsage, "cannot read " + file + ": " + std::strerror(errno)};
    return in;
}

korvane::Interpreter* g_interpreter = nullptr;

void printStatus(const char* text) {
    if (g_interpreter != nullptr) g_interpreter->status(text);
}

// Starts the suite for the run and stops it when the run ends, however it ends.
class Session {
public:
    Session(const std::string& settings, int logLevel) {
        if (logLevel != -2) setLevels(logLevel);
        initKorvaneAPI(settings.c_str());
        if (logLevel != -2) setLevels(logLevel);  // over the settings' own levels
        korvane::watchFormulaRefusals();
        KrvExternalFunction::getInstance().setUpdStatusBarFunction(&printStatus);
        korvane::installProgress();
        korvane::installResultTargets();
    }
    ~Session() {
        korvane::removeResultTargets();
        korvane::removeProgress();
        KrvExternalFunction::getInstance().setUpdStatusBarFunction(nullptr);
        korvane::stopWatchingFormulaRefusals();
        endKorvaneAPI();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

private:
    // The library's logger and the suite's own ("Korvane" and the loggers under it).
    static void setLevels(int level) {
        getKrvBaseLogger().setLogLevel(level);
        getKorvaneAPILogger().setLogLevel(level);
        setKrvConsoleLevel(level);
    }
};

// The subcommand and its arguments, for the error object of a failure outside the script.
std::string g_subcommand;
std::vector<std::string> g_arguments;

int report(const Options& options, const Failure& failure) {
    if (options.json) {
        korvane::Json object = korvane::jsonObject("error");
        object.update({{"call", g_subcommand}, {"args", g_arguments}, {"ok", false}, {"error", failure.message},
                       {"exit_status", failure.status}});
        korvane::writeJson(std::cout, object);
    } else {
        std::cerr << "korvane: " << failure.message << '\n';
    }
    return failure.status;
}

// A full disk or a closed pipe: the results did not arrive, whatever the calls did.
int checkOutput(int status) {
    errno = 0;
    std::cout.flush();
    const bool written = std::cout.good() && std::fflush(stdout) == 0 && !std::ferror(stdout);
    if (written) return status;
    const int error = errno;
    std::cerr << "korvane: cannot write standard output" << (error != 0 ? std::string(": ") + std::strerror(error) : "")
              << '\n';
    return status == 0 ? kFailed : status;
}

bool wantsJson(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--json") == 0) return true;
    return false;
}

void defineMeasure(CLI::App& app, Options::Measure& measure) {
    CLI::App* command = app.add_subcommand("measure", "measure the objects of a label image with a measure group");
    command->add_option("LABELS", measure.labels, "the label image (TIFF or PNG)")->required();
    command->add_option("--grey", measure.grey, "a grey image of the same size, for the intensity measures");
    command->add_option("--group", measure.group, "the measure group to measure with")->required();
    command->add_option("--measures", measure.measures,
                        "make the group from these measures first, comma-separated (Area,Perimeter,...)");
    command->add_option("--setup", measure.setup, "a script run first, to define user measures and groups");
    command->add_option("--feret", measure.directions, "Length3d over N uniform directions")->check(CLI::PositiveNumber);
    command->add_option("--csv", measure.csv, "write the table as CSV instead of printing it");
    command->add_option("--json-table", measure.json, "write the table as JSON instead of printing it");
}

void defineCommandLine(CLI::App& app, Options& options) {
    app.name("korvane");
    app.require_subcommand(1);
    app.set_version_flag("--version", "korvane " KORVANE_VERSION);
    app.add_option("--settings", options.settings, "folder with Tarsel.ini (default: the tool's own)");
    app.add_option("--log-level", options.logLevel,
                   "show the log lines of the library and the suite at this level on stderr")
        ->check(CLI::IsMember({"Debug", "Info", "Warn", "Error", "Off"}, CLI::ignore_case));
    app.add_flag("--keep-going", options.keepGoing, "go on after a failed line and report every failure");
    app.add_flag("-q,--quiet", options.quiet, "print results only, without echoing the calls");
    app.add_flag("--json", options.json, "print one JSON object per line (docs/tool.md has the schema)");

    app.add_subcommand("run", "run a script of calls, one per line")
        ->add_option("script", options.script, "the script file, - for standard input")
        ->required();
    app.add_subcommand("shell", "type calls one at a time");
    app.add_subcommand("help", "list the calls, or describe one")
        ->add_option("call", options.helpCall, "a call's or statement's name");
    app.add_subcommand("commands", "list the suite's processing commands with descriptions");
    CLI::App* feret = app.add_subcommand("feret", "print N uniform directions and their covering radius");
    feret->add_option("N", options.feretCount, "the number of directions")->required();
    feret->add_flag("--vectors", options.feretVectors, "unit vectors instead of angles in degrees");
    feret->add_option("--svg", options.feretSvgFile,
                      "write a picture instead: the half sphere in equal-area projection, each direction a dot "
                      "shaded by the angle to its nearest neighbour");
    defineMeasure(app, options.measure);
}

// --help and --version print and end the run with 0; any other parse error is a usage error.
int parseError(const CLI::App& app, const Options& options, const CLI::ParseError& error, int argc, char** argv) {
    g_subcommand = "korvane";
    g_arguments.assign(argv + 1, argv + argc);
    if (error.get_exit_code() != 0) return report(options, {kUsage, std::string(error.what()) + " (korvane --help)"});
    if (!options.json) return checkOutput(app.exit(error));
    const bool version = dynamic_cast<const CLI::CallForVersion*>(&error) != nullptr;
    korvane::Json object = korvane::jsonObject(version ? "version" : "usage");
    const CLI::App* asked = app.get_subcommands().empty() ? &app : app.get_subcommands().front();  // run --help
    object["text"] = version ? std::string("korvane " KORVANE_VERSION) : asked->help();
    korvane::writeJson(std::cout, object);
    return checkOutput(0);
}

// The subcommand's own call as the interpreter runs it: feret N [vectors], or feretSvg N FILE.
korvane::Args feretCall(const Options& options) {
    const std::string count = std::to_string(options.feretCount);
    if (!options.feretSvgFile.empty()) return {"feretSvg", count, options.feretSvgFile};
    if (options.feretVectors) return {"feret", count, "vectors"};
    return {"feret", count};
}

// The measure subcommand as the script it stands for: load, make the group, measure, show or
// write the table. A failing line ends it, as in a script.
std::string measureScript(const Options::Measure& measure) {
    std::vector<korvane::Args> lines{{"loadImage", "labels", measure.labels}};
    if (!measure.grey.empty()) lines.push_back({"loadImage", "grey", measure.grey});
    if (measure.directions > 0) lines.push_back({"setFeret3dMsrParams", std::to_string(measure.directions)});
    if (!measure.measures.empty()) {
        lines.push_back({"addMsrGrp", measure.group});
        std::stringstream names(measure.measures);
        for (std::string name; std::getline(names, name, ',');)
            if (!name.empty()) lines.push_back({"addMsrToMsrGrp", measure.group, name});
    }
    korvane::Args run{"runCommand", "Measure", "labels=labels", "group=" + measure.group, "result=Results"};
    if (!measure.grey.empty()) run.push_back("grey=grey");
    lines.push_back(run);
    // What the proxy service delivered, as a client receives it.
    if (!measure.csv.empty()) lines.push_back({"exportSheet", measure.csv});
    if (!measure.json.empty()) lines.push_back({"exportSheet", measure.json});
    if (measure.csv.empty() && measure.json.empty()) lines.push_back({"showSheet"});
    std::string script;
    for (const korvane::Args& line : lines) script += korvane::joinQuoted(line) + '\n';
    return script;
}

// Runs the subcommand with the suite started; the exit status.
int runWithSuite(const Options& options) {
    const std::string& subcommand = options.subcommand;
    const int logLevel = options.logLevel.empty() ? -2 : parseKrvLogLevel(options.logLevel);
    const bool interactive = subcommand == "shell" && isatty(STDIN_FILENO);
    const bool echo = !options.quiet && !interactive && subcommand != "feret" && subcommand != "measure";
    korvane::Interpreter interpreter(std::cout, std::cerr, {options.keepGoing, echo, options.json});
    const bool fromFile = subcommand == "run" && options.script != "-";
    std::ifstream scriptFile = fromFile ? openScript(options.script) : std::ifstream();
    const std::string settings = findSettings(options.settings);
    g_interpreter = &interpreter;
    Session session(settings, logLevel);
    if (subcommand == "commands") {
        korvane::printCommands(std::cout, options.json);
        return checkOutput(0);
    }
    if (subcommand == "feret")
        return checkOutput(interpreter.runLine(korvane::joinQuoted(feretCall(options)), "", 0) ? 0 : kFailed);
    if (subcommand == "shell") {
        const korvane::ShellEnd end = korvane::runShell(interpreter, options.json);
        if (end.signal != 0) return 128 + end.signal;  // as if the signal had ended it
        return checkOutput(end.failures == 0 || interactive ? 0 : kFailed);
    }
    if (subcommand == "measure") {
        if (!options.measure.setup.empty()) {
            std::ifstream setup = openScript(options.measure.setup);
            if (interpreter.runAll(setup, options.measure.setup) > 0) return checkOutput(kFailed);
        }
        std::istringstream script(measureScript(options.measure));
        return checkOutput(interpreter.runAll(script, "measure") == 0 ? 0 : kFailed);
    }
    const int failures = fromFile ? interpreter.runAll(scriptFile, options.script)
                                  : interpreter.runAll(std::cin, "<stdin>");
    if (failures > 0 && options.keepGoing && !options.json)
        std::cerr << "korvane: " << failures << " line(s) failed\n";
    return checkOutput(failures == 0 ? 0 : kFailed);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"korvane: drive the Korvane suite through KorvaneAPI from scripts"};
    Options options;
    options.json = wantsJson(argc, argv);  // so that a parse error is an object too
    defineCommandLine(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return parseError(app, options, e, argc, argv);
    }
    options.subcommand = g_subcommand = app.get_subcommands().front()->get_name();
    if (options.subcommand == "run") g_arguments = {options.script};
    if (options.subcommand == "help" && !options.helpCall.empty()) g_arguments = {options.helpCall};
    if (options.subcommand == "feret") g_arguments = {std::to_string(options.feretCount)};
    if (options.subcommand == "measure") g_arguments = {options.measure.labels};
    try {
        if (options.subcommand != "help") return runWithSuite(options);
        korvane::printHelp(std::cout, options.helpCall, options.json);
        return checkOutput(0);
    } catch (const Failure& failure) {
        return report(options, failure);
    } catch (const std::exception& e) {
        return report(options, {kUsage, e.what()});
    }
}
