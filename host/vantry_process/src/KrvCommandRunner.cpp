// The command runner: checks a call against the catalogue, runs the command's body, and stores
// what it staged only when the whole command succeeded.
#include <vantry_process/KrvCommandRunner.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include <vantry_data/CDatAnlHandler.h>
#include <vantry_data/CDatFlrHandler.h>
#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatMorphoLutHandler.h>
#include <vantry_data/CDatSeg.h>
#include <vantry_data/CDatTami.h>
#include <vantry_process/CProService.h>
#include <vantry_util/CKrvHandler.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvProgress.h>

namespace {

std::mutex g_bodiesMutex;
std::map<std::string, KrvCommandBody>& bodies() {
    static std::map<std::string, KrvCommandBody> registered;
    return registered;
}

KrvCommandBody bodyOf(const std::string& name) {
    std::lock_guard<std::mutex> lock(g_bodiesMutex);
    const auto found = bodies().find(name);
    return found == bodies().end() ? KrvCommandBody{} : found->second;
}

[[noreturn]] void refuse(const std::string& command, const std::string& reason, int line) {
    throw KrvBaseException(command + ": " + reason, __FILE__, static_cast<std::uint64_t>(line));
}

bool isOutput(const CProCmdParam& p) { return std::string(p.type) == "image" && std::string(p.name) == "output"; }

std::vector<std::string> splitList(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1)
        parts.push_back(text.substr(start, end - start));
    parts.push_back(text.substr(start));
    return parts;
}

bool parseLong(const std::string& text, long& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0';
}

bool parseDouble(const std::string& text, double& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return *end == '\0' && std::isfinite(value);
}

bool parseBool(const std::string& text, bool& value) {
    if (text == "true" || text == "1") return value = true, true;
    if (text == "false" || text == "0") return !(value = false);
    return false;
}

std::string rangeText(const CProCmdParam& p) {
    auto number = [](double v) {
        char text[32];
        std::snprintf(text, sizeof text, "%.10g", v);
        return std::string(text);
    };
    return "[" + number(p.minimum) + ", " + number(p.maximum) + "]";
}

std::string choicesText(const char* choices) {
    std::string text;
    for (const std::string& choice : splitList(choices, '|')) text += (text.empty() ? "" : ", ") + choice;
    return text;
}

CDatImgHandler& imageStore(const std::string& command) {
    CDatImgHandler* store = CDatImgHandler::m_pInstance;
    if (store == nullptr || store->IsStopped()) {
        logKrvNotStarted();
        refuse(command, "the suite is not started", __LINE__);
    }
    return *store;
}

// Whether the stored object that a "filter", "lut", "sieve", "segment" or "group" parameter
// names exists in its handler.
bool storedObjectExists(const std::string& kind, const CKrvString& name) {
    if (kind == "filter") return CDatFlrHandler::m_pInstance->FindObj(name) != nullptr;
    if (kind == "lut") return CDatMorphoLutHandler::m_pInstance->FindObj(name) != nullptr;
    if (kind == "sieve") return CDatTamiHandler::m_pInstance->FindObj(name) != nullptr;
    if (kind == "segment") return CDatSegHandler::m_pInstance->FindObj(name) != nullptr;
    if (kind == "group") return CDatAnlHandler::m_pInstance->GetGrpMsr(name) != nullptr;
    return true;
}

// Checks one value against its parameter; the reason it is refused, or empty.
std::string checkValue(const CProCmdParam& p, const std::string& value, CDatImgHandler& store) {
    const std::string type = p.type, name = p.name;
    const std::string quoted = "\"" + value + "\"";
    if (type == "int") {
        long number = 0;
        if (!parseLong(value, number)) return "parameter " + name + " must be an integer, not " + quoted;
        if (p.choices) {
            for (const std::string& choice : splitList(p.choices, '|'))
                if (choice == std::to_string(number)) return {};
            return "parameter " + name + " must be one of " + choicesText(p.choices) + ", not " + value;
        }
        if (number < p.minimum || number > p.maximum)
            return "parameter " + name + " = " + value + " lies outside " + rangeText(p);
    } else if (type == "float") {
        double number = 0;
        if (!parseDouble(value, number)) return "parameter " + name + " must be a number, not " + quoted;
        if (number < p.minimum || number > p.maximum)
            return "parameter " + name + " = " + value + " lies outside " + rangeText(p);
    } else if (type == "bool") {
        bool flag = false;
        if (!parseBool(value, flag)) return "parameter " + name + " must be true or false, not " + quoted;
    } else if (type == "string") {
        if (p.choices) {
            for (const std::string& choice : splitList(p.choices, '|'))
                if (choice == value) return {};
            return "parameter " + name + " must be one of " + choicesText(p.choices) + ", not " + quoted;
        }
        if (value.empty()) return "parameter " + name + " is empty";
    } else if (type == "image" && isOutput(p)) {
        if (!CKrvHandler::IsValidName(CKrvString(value)) || store.FindObj(CKrvString(value)) != nullptr)
            return "can't store an image named " + quoted + ": the name is invalid or already used";
    } else if (type == "image") {
        for (const std::string& image : splitList(value, ','))
            if (store.FindObj(CKrvString(image)) == nullptr) return "no image named \"" + image + "\"";
    } else if (!storedObjectExists(type, CKrvString(value))) {
        return "no " + type + " named " + quoted;
    }
    return {};
}

// Every parameter of the command with its value: given, or the default.
std::vector<KrvCommandArgument> checkArguments(const std::string& command, const CProCmd& info,
                                               const std::vector<KrvCommandArgument>& arguments,
                                               CDatImgHandler& store) {
    std::map<std::string, std::string> given;
    for (const KrvCommandArgument& argument : arguments) {
        const auto& params = info.GetParams();
        const bool known = std::any_of(params.begin(), params.end(),
                                       [&](const CProCmdParam& p) { return argument.name == p.name; });
        if (!known) refuse(command, "unknown parameter \"" + argument.name + "\"", __LINE__);
        if (!given.emplace(argument.name, argument.value).second)
            refuse(command, "parameter " + argument.name + " is given twice", __LINE__);
    }
    std::vector<KrvCommandArgument> checked;
    for (const CProCmdParam& p : info.GetParams()) {
        const auto found = given.find(p.name);
        if (found == given.end() && *p.defaultValue == '\0') refuse(command, std::string("parameter ") + p.name + " is missing", __LINE__);
        const std::string value = found == given.end() ? p.defaultValue : found->second;
        const std::string reason = checkValue(p, value, store);
        if (!reason.empty()) refuse(command, reason, __LINE__);
        checked.push_back({p.name, value});
    }
    return checked;
}

const CProCmd* catalogueCommand(const std::string& name) {
    auto* service = dynamic_cast<CProService*>(CService::Get(eServiceProcess));
    if (service == nullptr) {
        logKrvNotStarted();
        refuse(name, "the suite is not started", __LINE__);
    }
    return service->GetCmdList().GetCmd(CKrvString(name));
}

}  // namespace

struct KrvCommandCall::State {
    std::string command;
    std::vector<KrvCommandArgument> arguments;
    std::vector<std::pair<std::string, KrvImage>> outputs;  // image name, image
    std::vector<std::function<void()>> commits;
    std::unique_ptr<KrvProgress> progress;
    std::string progressWhat;
    long progressTotal = 0, progressDone = 0;

    const std::string& valueOf(const char* param) const {
        for (const KrvCommandArgument& argument : arguments)
            if (argument.name == param) return argument.value;
        refuse(command, std::string("no parameter ") + param, __LINE__);
    }
};

KrvCommandCall::KrvCommandCall(std::string command, std::vector<KrvCommandArgument> checked)
    : m_state(std::make_unique<State>()) {
    m_state->command = std::move(command);
    m_state->arguments = std::move(checked);
}

KrvCommandCall::~KrvCommandCall() = default;

const std::string& KrvCommandCall::Command() const noexcept { return m_state->command; }

const KrvImage& KrvCommandCall::Image(const char* param) const {
    const std::vector<const KrvImage*> images = Images(param);
    if (images.size() != 1) refuse(m_state->command, std::string("parameter ") + param + " names more than one image", __LINE__);
    return *images.front();
}

std::vector<const KrvImage*> KrvCommandCall::Images(const char* param) const {
    std::vector<const KrvImage*> images;
    for (const std::string& name : splitList(m_state->valueOf(param), ',')) {
        const CDatImg* image = imageStore(m_state->command).FindObj(CKrvString(name));
        if (image == nullptr) refuse(m_state->command, "no image named \"" + name + "\"", __LINE__);
        images.push_back(&image->GetImage());
    }
    return images;
}

long KrvCommandCall::Int(const char* param) const {
    long value = 0;
    if (!parseLong(m_state->valueOf(param), value)) refuse(m_state->command, std::string("parameter ") + param + " is no integer", __LINE__);
    return value;
}

double KrvCommandCall::Float(const char* param) const {
    double value = 0;
    if (!parseDouble(m_state->valueOf(param), value)) refuse(m_state->command, std::string("parameter ") + param + " is no number", __LINE__);
    return value;
}

bool KrvCommandCall::Bool(const char* param) const {
    bool value = false;
    if (!parseBool(m_state->valueOf(param), value)) refuse(m_state->command, std::string("parameter ") + param + " is no flag", __LINE__);
    return value;
}

const std::string& KrvCommandCall::Text(const char* param) const { return m_state->valueOf(param); }

void KrvCommandCall::SetOutput(const char* param, KrvImage image) {
    const std::string& name = m_state->valueOf(param);
    if (image.IsEmpty()) refuse(m_state->command, "the output " + name + " is empty", __LINE__);
    for (auto& staged : m_state->outputs)
        if (staged.first == name) {
            staged.second = std::move(image);
            return;
        }
    m_state->outputs.emplace_back(name, std::move(image));
}

void KrvCommandCall::OnSuccess(std::function<void()> commit) { m_state->commits.push_back(std::move(commit)); }

void KrvCommandCall::Step(const char* what, long done, long total) {
    State& s = *m_state;
    if (!s.progress || s.progressWhat != what || s.progressTotal != total || done < s.progressDone) {
        s.progress = std::make_unique<KrvProgress>(what, static_cast<std::uint64_t>(std::max(total, 0L)));
        s.progressWhat = what;
        s.progressTotal = total;
    }
    s.progressDone = done;
    if (!s.progress->step(static_cast<std::uint64_t>(std::max(done, 0L)))) throw KrvCommandStopped{};
}

void KrvCommandCall::StoreOutputs() {
    CDatImgHandler& store = imageStore(m_state->command);
    for (const auto& staged : m_state->outputs)
        if (store.FindObj(CKrvString(staged.first)) != nullptr)
            refuse(m_state->command, "can't store an image named \"" + staged.first + "\": the name is invalid or already used", __LINE__);
    for (auto& staged : m_state->outputs) store.AddImg(CKrvString(staged.first), std::move(staged.second));
    m_state->outputs.clear();
    for (const auto& commit : m_state->commits) commit();
    m_state->commits.clear();
}

void krvRegisterCommandBody(const std::string& name, KrvCommandBody body) {
    std::lock_guard<std::mutex> lock(g_bodiesMutex);
    bodies()[name] = std::move(body);
}

bool krvRunCommand(const std::string& name, const std::vector<KrvCommandArgument>& arguments) {
    const CProCmd* info = catalogueCommand(name);
    if (info == nullptr) refuse(name, "no such command", __LINE__);
    CDatImgHandler& store = imageStore(name);
    KrvCommandCall call(name, checkArguments(name, *info, arguments, store));
    const KrvCommandBody body = bodyOf(name);
    if (!body) refuse(name, "not available", __LINE__);
    try {
        body(call);
    } catch (const KrvCommandStopped&) {
        return false;
    } catch (const KrvBaseException& error) {
        const std::string& message = error.getMessage();
        if (message.rfind(name + ": ", 0) == 0) throw;
        throw KrvBaseException(name + ": " + message, error.getFile(), error.getLine());
    } catch (const std::bad_alloc&) {
        refuse(name, "not enough memory", __LINE__);
    }
    call.StoreOutputs();
    return true;
}
