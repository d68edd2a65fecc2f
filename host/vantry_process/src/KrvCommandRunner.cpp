// The command runner in its plain form: parameters checked by name (unknown, repeated, missing),
// typed on access, outputs staged and stored when the body ends well. The full runner, with
// ranges and every type checked before the body runs, replaces this file.
#include <vantry_process/KrvCommandRunner.h>

#include <algorithm>
#include <map>

#include <vantry_data/CDatImg.h>
#include <vantry_process/CProService.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvProgress.h>

namespace {

std::map<std::string, KrvCommandBody>& bodies() {
    static std::map<std::string, KrvCommandBody> registered;
    return registered;
}

[[noreturn]] void refuse(const std::string& reason, int line) { throw KrvBaseException(reason, __FILE__, line); }

const CProCmd* catalogueCommand(const std::string& name) {
    static CProCmdList list;
    return list.GetCmd(CKrvString(name));
}

}  // namespace

struct KrvCommandCall::State {
    std::string command;
    std::vector<KrvCommandArgument> arguments;
    std::vector<std::pair<std::string, KrvImage>> outputs;
    std::unique_ptr<KrvProgress> progress;
    std::string progressWhat;

    const std::string& value(const char* param) const {
        for (const KrvCommandArgument& argument : arguments)
            if (argument.name == param) return argument.value;
        refuse(command + " has no parameter " + param, __LINE__);
    }
};

KrvCommandCall::KrvCommandCall(std::string command, std::vector<KrvCommandArgument> checked)
    : m_state(new State{std::move(command), std::move(checked), {}, {}, {}}) {}
KrvCommandCall::~KrvCommandCall() = default;

const std::string& KrvCommandCall::Command() const noexcept { return m_state->command; }

const KrvImage& KrvCommandCall::Image(const char* param) const {
    const std::string& name = m_state->value(param);
    const CDatImg* image = CDatImgHandler::m_pInstance->FindObj(CKrvString(name));
    if (image == nullptr) refuse("no image " + name, __LINE__);
    return image->GetImage();
}

std::vector<const KrvImage*> KrvCommandCall::Images(const char* param) const {
    std::vector<const KrvImage*> images;
    const std::string& names = m_state->value(param);
    for (std::size_t start = 0; start <= names.size();) {
        const std::size_t comma = std::min(names.find(',', start), names.size());
        const std::string name = names.substr(start, comma - start);
        const CDatImg* image = CDatImgHandler::m_pInstance->FindObj(CKrvString(name));
        if (image == nullptr) refuse("no image " + name, __LINE__);
        images.push_back(&image->GetImage());
        start = comma + 1;
    }
    return images;
}

namespace {

// The whole text as a number by `parse` (std::stol, std::stod), or a refusal naming `what`.
template <class Parse>
auto parsed(const char* param, const std::string& text, Parse parse, const char* what) {
    std::size_t used = 0;
    try {
        const auto value = parse(text, &used);
        if (used == text.size()) return value;
    } catch (const std::exception&) {
    }
    refuse(std::string(param) + ": \"" + text + "\" is not " + what, __LINE__);
}

}  // namespace

long KrvCommandCall::Int(const char* param) const {
    return parsed(param, m_state->value(param), [](const std::string& t, std::size_t* n) { return std::stol(t, n); },
                  "a whole number");
}

double KrvCommandCall::Float(const char* param) const {
    return parsed(param, m_state->value(param), [](const std::string& t, std::size_t* n) { return std::stod(t, n); },
                  "a number");
}

bool KrvCommandCall::Bool(const char* param) const {
    const std::string& text = m_state->value(param);
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    refuse(std::string(param) + ": \"" + text + "\" is not true or false", __LINE__);
}

const std::string& KrvCommandCall::Text(const char* param) const { return m_state->value(param); }

void KrvCommandCall::SetOutput(const char* param, KrvImage image) {
    m_state->outputs.emplace_back(m_state->value(param), std::move(image));
}

void KrvCommandCall::Step(const char* what, long done, long total) {
    if (!m_state->progress || m_state->progressWhat != what) {
        m_state->progress = std::make_unique<KrvProgress>(what, static_cast<std::uint64_t>(total));
        m_state->progressWhat = what;
    }
    if (!m_state->progress->step(static_cast<std::uint64_t>(done))) throw KrvCommandStopped{};
}

void KrvCommandCall::StoreOutputs() {
    CDatImgHandler* store = CDatImgHandler::m_pInstance;
    for (auto& [name, image] : m_state->outputs) {
        store->RemoveImg(CKrvString(name));
        if (store->AddImg(CKrvString(name), std::move(image)) == nullptr) refuse("can't store image " + name, __LINE__);
    }
    m_state->outputs.clear();
}

void krvRegisterCommandBody(const std::string& name, KrvCommandBody body) { bodies()[name] = std::move(body); }

bool krvRunCommand(const std::string& name, const std::vector<KrvCommandArgument>& arguments) {
    try {
        const CProCmd* command = catalogueCommand(name);
        const auto body = bodies().find(name);
        if (command == nullptr || body == bodies().end()) refuse("no such command", __LINE__);
        std::vector<KrvCommandArgument> checked;
        for (const CProCmdParam& param : command->GetParams()) {
            const KrvCommandArgument* given = nullptr;
            for (const KrvCommandArgument& argument : arguments)
                if (argument.name == param.name) {
                    if (given != nullptr) refuse("parameter " + argument.name + " given twice", __LINE__);
                    given = &argument;
                }
            if (given == nullptr && *param.defaultValue == '\0') refuse("missing parameter " + std::string(param.name), __LINE__);
            checked.push_back({param.name, given ? given->value : param.defaultValue});
        }
        for (const KrvCommandArgument& argument : arguments) {
            bool known = false;
            for (const CProCmdParam& param : command->GetParams()) known |= argument.name == param.name;
            if (!known) refuse("unknown parameter " + argument.name, __LINE__);
        }
        KrvCommandCall call(name, std::move(checked));
        body->second(call);
        call.StoreOutputs();
        return true;
    } catch (const KrvCommandStopped&) {
        return false;
    } catch (const KrvBaseException& error) {
        throw KrvBaseException(name + ": " + error.getMessage(), error.getFile(), error.getLine());
    }
}
