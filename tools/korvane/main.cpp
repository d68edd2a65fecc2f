// korvane: drives KorvaneAPI from scripts. Starts the suite, runs the calls of a script (or of an
// interactive shell) one per line, prints their results, and stops the suite again.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <boost/dll/runtime_symbol_info.hpp>
#include <boost/filesystem.hpp>

#ifdef KORVANE_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvLogger.h>

#include "Completion.h"
#include "ProgressBar.h"
#include "Script.h"

namespace {

namespace fs = boost::filesystem;

// The settings folder: --settings, else the installed share/korvane/settings beside the
// executable, else the source tree's (a build that was not installed).
std::string findSettings(const std::string& given) {
    if (!given.empty()) return given;
    const fs::path installed = boost::dll::program_location().parent_path().parent_path() / "share/korvane/settings";
    boost::system::error_code ignored;
    if (fs::is_directory(installed, ignored)) return installed.string();
    return KORVANE_SOURCE_SETTINGS;
}

void printStatus(const char* text) { std::cout << "  [status] " << text << '\n'; }

// Starts the suite for the run and stops it when the run ends, however it ends.
class Session {
public:
    Session(const std::string& settings, int logLevel) {
        if (logLevel != -2) {
            getKorvaneAPILogger().setLogLevel(logLevel);
            setKrvConsoleLevel(logLevel);
        }
        initKorvaneAPI(settings.c_str());
        if (logLevel != -2) setKrvConsoleLevel(logLevel);  // over the settings' own threshold
        KrvExternalFunction::getInstance().setUpdStatusBarFunction(&printStatus);
        korvane::installProgress();
    }
    ~Session() {
        korvane::removeProgress();
        KrvExternalFunction::getInstance().setUpdStatusBarFunction(nullptr);
        endKorvaneAPI();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
};

int runScript(const std::string& file, korvane::Interpreter& interpreter) {
    if (file == "-") return interpreter.runAll(std::cin, "<stdin>");
    std::ifstream in(file);
    if (!in) {
        std::cerr << "korvane: cannot open " << file << '\n';
        return 1;
    }
    return interpreter.runAll(in, file);
}

#ifdef KORVANE_HAVE_LIBEDIT
// Tab completion: call names first, then stored object names where the call takes one.
std::vector<std::string> g_matches;

char* nextMatch(const char*, int state) {
    if (static_cast<std::size_t>(state) >= g_matches.size()) return nullptr;
    return strdup(g_matches[static_cast<std::size_t>(state)].c_str());
}

char** completeCall(const char* text, int, int end) {
    rl_attempted_completion_over = 1;  // no file names
    g_matches = korvane::completeLine(std::string(rl_line_buffer, static_cast<std::size_t>(end)));
    if (g_matches.empty()) return nullptr;
    return rl_completion_matches(text, &nextMatch);
}

// The shell's history, kept between sessions in ~/.korvane_history.
std::string historyFile() {
    const char* home = std::getenv("HOME");
    return home == nullptr ? std::string() : std::string(home) + "/.korvane_history";
}
#endif

// Reads one line: with editing, history and completion on a terminal when libedit was found at
// build time, a plain prompt otherwise.
bool readLine(std::string& line) {
#ifdef KORVANE_HAVE_LIBEDIT
    if (isatty(STDIN_FILENO)) {
        char* read = readline("korvane> ");
        if (read == nullptr) return false;
        line = read;
        if (!line.empty()) add_history(read);
        std::free(read);
        return true;
    }
#endif
    if (isatty(STDIN_FILENO)) std::cout << "korvane> " << std::flush;
    return static_cast<bool>(std::getline(std::cin, line));
}

void runShell(korvane::Interpreter& interpreter) {
#ifdef KORVANE_HAVE_LIBEDIT
    rl_readline_name = "korvane";
    rl_attempted_completion_function = &completeCall;
    const std::string history = historyFile();
    if (!history.empty()) read_history(history.c_str());
#endif
    if (isatty(STDIN_FILENO))
        std::cout << "korvane shell: one call per line; help, help CALL, Tab to complete, quit to leave\n";
    std::string line;
    for (int number = 1; readLine(line); ++number) {
        const korvane::Args words = [&] {
            try {
                return korvane::splitLine(line);
            } catch (const korvane::ScriptError&) {
                return korvane::Args{};
            }
        }();
        if (!words.empty() && (words[0] == "quit" || words[0] == "exit")) break;
        if (!words.empty() && words[0] == "help" && words.size() <= 2) {
            try {
                korvane::printHelp(std::cout, words.size() == 2 ? words[1] : "");
            } catch (const std::exception& e) {
                std::cerr << "line " << number << ": " << e.what() << '\n';
            }
            continue;
        }
        interpreter.runLine(line, "", number);
    }
#ifdef KORVANE_HAVE_LIBEDIT
    if (!history.empty()) write_history(history.c_str());
#endif
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"korvane: drive the Korvane suite through KorvaneAPI from scripts"};
    app.require_subcommand(1);
    std::string settings;
    std::string logLevelText;
    bool keepGoing = false;
    bool quiet = false;
    bool json = false;
    app.add_option("--settings", settings, "folder with Tarsel.ini (default: the tool's own)");
    app.add_option("--log-level", logLevelText, "show the library's log lines at this level on stderr")
        ->check(CLI::IsMember({"Debug", "Info", "Warn", "Error", "Off"}, CLI::ignore_case));
    app.add_flag("--keep-going", keepGoing, "go on after a failed line and report every failure");
    app.add_flag("-q,--quiet", quiet, "print results only, without echoing the calls");
    app.add_flag("--json", json,
                 "print one JSON object per line and call: line, call, args, ok, result lines or error");

    std::string script;
    CLI::App* run = app.add_subcommand("run", "run a script of calls, one per line");
    run->add_option("script", script, "the script file, - for standard input")->required();
    CLI::App* shell = app.add_subcommand("shell", "type calls one at a time");
    std::string helpCall;
    CLI::App* help = app.add_subcommand("help", "list the calls, or describe one");
    help->add_option("call", helpCall, "a call's name");
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

    CLI11_PARSE(app, argc, argv);

    try {
        if (*help) {
            korvane::printHelp(std::cout, helpCall);
            return 0;
        }
        const int logLevel = logLevelText.empty() ? -2 : parseKrvLogLevel(logLevelText);
        korvane::Interpreter interpreter(std::cout, std::cerr, {keepGoing, !quiet && !(*shell && isatty(STDIN_FILENO)), json});
        Session session(findSettings(settings), logLevel);
        if (*commands) {
            korvane::printCommands(std::cout);
            return 0;
        }
        if (*feret && !feretSvgFile.empty()) {
            korvane::writeFeretSvg(feretCount, feretSvgFile);
            std::cout << "wrote " << feretSvgFile << '\n';
            return 0;
        }
        if (*feret) {
            for (const std::string& line : korvane::feretListing(feretCount, feretVectors)) std::cout << line << '\n';
            return 0;
        }
        if (*shell) {
            runShell(interpreter);
            return 0;
        }
        const int failures = runScript(script, interpreter);
        if (failures > 0 && keepGoing) std::cerr << "korvane: " << failures << " line(s) failed\n";
        return failures == 0 ? 0 : 1;
    } catch (const std::exception& e) {
        std::cerr << "korvane: " << e.what() << '\n';
        return 2;
    }
}
