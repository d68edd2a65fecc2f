// The image vocabulary and the image-formula manager.
#include <vantry_util/KrvImageFormulaManager.h>

#include <vantry_util/KrvLogger.h>

int KrvImageFormulaNames::resolve(std::string_view name, std::string& why) const {
    if (name.size() == 2 && name[0] == 'I' && name[1] >= '1' && name[1] <= '9') return kFirstImage + (name[1] - '1');
    if (name == "X") return kX;
    if (name == "Y") return kY;
    if (name == "Z") return kZ;
    why = "unknown name '" + std::string(name.substr(0, 40)) + "' (an image formula reads I1 to I9, X, Y and Z)";
    return -1;
}

const KrvImageFormulaNames& KrvImageFormulaNames::instance() {
    static const KrvImageFormulaNames names;
    return names;
}

bool KrvImageFormulaManager::init(const std::string& formula) {
    m_error = m_formula.compile(formula, KrvImageFormulaNames::instance());
    if (!m_error.ok()) logKrvFormulaRefusal(m_error, formula);
    return m_error.ok();
}

void logKrvFormulaRefusal(const KrvFormulaError& error, std::string_view formula) {
    static KrvLogger log("Korvane.Formula");
    if (!log.isEnabledFor(KrvLoggerLevel::Debug)) return;
    constexpr std::size_t kShown = 200;
    std::string text = "Formula refused " + error.describe() + ": ";
    text.append(formula.substr(0, kShown));
    if (formula.size() > kShown) text += "...";
    log.forcedLog(KrvLoggerLevel::Debug, text, __FILE__, __LINE__);
}
