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

struct Options {
    std::string settings;
    std::string logLevel;
    bool keepGoing = false;
    bool quiet = false;
    bool json = false;
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
    }
    ~Session() {
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
int checkOutput(const Options& options, int status) {
    errno = 0;
    std::cout.flush();
    const bool written = std::cout.good() && std::fflush(stdout) == 0 && !std::ferror(stdout);
    if (written) return status;
    const int error = errno;
    std::cerr << "korvane: cannot write standard output" << (error != 0 ? std::string(": ") + std::strerror(error) : "")
              << '\n';
    (void)options;
    return status == 0 ? kFailed : status;
}

bool wantsJson(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--json") == 0) return true;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"korvane: drive the Korvane suite through KorvaneAPI from scripts"};
    app.name("korvane");
    app.require_subcommand(1);
    app.set_version_flag("--version", "korvane " KORVANE_VERSION);
    Options options;
    options.json = wantsJson(argc, argv);
    app.add_option("--settings", options.settings, "folder with Tarsel.ini (default: the tool's own)");
    app.add_option("--log-level", options.logLevel,
                   "show the log lines of the library and the suite at this level on stderr")
        ->check(CLI::IsMember({"Debug", "Info", "Warn", "Error", "Off"}, CLI::ignore_case));
    app.add_flag("--keep-going", options.keepGoing, "go on after a failed line and report every failure");
    app.add_flag("-q,--quiet", options.quiet, "print results only, without echoing the calls");
    app.add_flag("--json", options.json, "print one JSON object per line (docs/tool.md has the schema)");

    std::string script;
    CLI::App* run = app.add_subcommand("run", "run a script of calls, one per line");
    run->add_option("script", script, "the script file, - for standard input")->required();
    CLI::App* shell = app.add_subcommand("shell", "type calls one at a time");
    std::string helpCall;
    CLI::App* help = app.add_subcommand("help", "list the calls, or describe one");
    help->add_option("call", helpCall, "a call's or statement's name");
    CLI::App* commands = app.add_subcommand("commands", "list the suite's processing commands with descriptions");
    int feretCount = 0;
    bool feretVectors = false;
    CLI::App* feret = app.add_subcommand("feret", "print N uniform directions and their covering radius");
    feret->add_option("N", feretCount, "the number of directions")->required();
    feret->add_flag("--vectors", feretVectors, "unit vectors instead of angles in degrees");
    std::string feretSvgFile;
    feret->add_option("--svg", feretSvgFile,
                      "write a picture instead: the half sphere in equal-area projection, each direction a dot "
                      "shaded by the angle to its nearest neighbour");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        g_subcommand = "korvane";
        g_arguments.assign(argv + 1, argv + argc);
        if (e.get_exit_code() != 0) return report(options, {kUsage, std::string(e.what()) + " (korvane --help)"});
        if (!options.json) return checkOutput(options, app.exit(e));
        korvane::Json object = korvane::jsonObject(dynamic_cast<const CLI::CallForVersion*>(&e) ? "version" : "usage");
        object["text"] = dynamic_cast<const CLI::CallForVersion*>(&e) ? std::string("korvane " KORVANE_VERSION)
                                                                       : app.help();
        korvane::writeJson(std::cout, object);
        return checkOutput(options, 0);
    }
    const CLI::App* chosen = app.get_subcommands().front();
    g_subcommand = chosen->get_name();
    for (const std::string& argument : chosen->remaining()) g_arguments.push_back(argument);
    if (*run) g_arguments = {script};
    if (*help && !helpCall.empty()) g_arguments = {helpCall};
    if (*feret) g_arguments = {std::to_string(feretCount)};

    try {
        if (*help) {
            korvane::printHelp(std::cout, helpCall, options.json);
            return checkOutput(options, 0);
        }
        const int logLevel = options.logLevel.empty() ? -2 : parseKrvLogLevel(options.logLevel);
        const bool interactive = *shell && isatty(STDIN_FILENO);
        const bool echo = !options.quiet && !interactive && !*feret;
        korvane::Interpreter interpreter(std::cout, std::cerr, {options.keepGoing, echo, options.json});
        std::ifstream scriptFile;
        if (*run && script != "-") scriptFile = openScript(script);
        const std::string settings = findSettings(options.settings);
        g_interpreter = &interpreter;
        Session session(settings, logLevel);
        if (*commands) {
            korvane::printCommands(std::cout, options.json);
            return checkOutput(options, 0);
        }
        if (*feret) {
            korvane::Args words{"feret", std::to_string(feretCount)};
            if (feretVectors) words.push_back("vectors");
            if (!feretSvgFile.empty()) words = {"feretSvg", std::to_string(feretCount), feretSvgFile};
            const bool ok = interpreter.runLine(korvane::joinQuoted(words), "", 0);
            return checkOutput(options, ok ? 0 : kFailed);
        }
        if (*shell) {
            const korvane::ShellEnd end = korvane::runShell(interpreter);
            if (end.signal != 0) return 128 + end.signal;  // as if the signal had ended it
            return checkOutput(options, end.failures == 0 || interactive ? 0 : kFailed);
        }
        const int failures = script == "-" ? interpreter.runAll(std::cin, "<stdin>") : interpreter.runAll(scriptFile, script);
        if (failures > 0 && options.keepGoing && !options.json) std::cerr << "korvane: " << failures << " line(s) failed\n";
        return checkOutput(options, failures == 0 ? 0 : kFailed);
    } catch (const Failure& failure) {
        return report(options, failure);
    } catch (const std::exception& e) {
        return report(options, {kUsage, e.what()});
    }
}
