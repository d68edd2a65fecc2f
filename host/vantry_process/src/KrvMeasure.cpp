// Measuring with a measure group, user measures in the order their formulas need them, delivery
// of result tables through the proxy service, and sieve classes.
#include <vantry_process/KrvMeasure.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <set>

#include <vantry_access_korlib/KrvNativeMeasures.h>
#include <vantry_data/CDatAnlHandler.h>
#include <vantry_data/CDatTami.h>
#include <vantry_data/DictionaryPrivate.h>
#include <vantry_process/OrlanSpreadsheet.h>
#include <vantry_service_handler/CService.h>
#include <vantry_util/KrvBaseException.h>

namespace {

[[noreturn]] void refuse(const std::string& reason) { throw KrvBaseException(reason, __FILE__, __LINE__); }

// The names of a group, each once, in the order of first appearance.
std::vector<std::string> distinctNames(const std::vector<CKrvString>& group) {
    std::vector<std::string> names;
    for (const CKrvString& name : group)
        if (std::find(names.begin(), names.end(), name.m_str) == names.end()) names.push_back(name.m_str);
    return names;
}

// The user measures a group needs, in an order where each comes after those its formula names,
// and the native measures and IP functions the kernels must compute for them and the group.
class MeasurePlan {
public:
    MeasurePlan(const CDatAnlHandler& handler, const std::string& group) : m_handler(handler), m_group(group) {}

    void add(const std::string& name) {
        if (krvFindNativeMeasure(name)) return need(name);
        const CDatUsrMeasure* user = m_handler.GetUsrMsr(name);
        if (user == nullptr) refuse("Measure group " + m_group + " names " + name + ", which is no measure");
        visit(name, *user);
    }

    std::vector<std::string> kernelNames;  // native measures and IP functions
    std::vector<std::pair<std::string, const CDatUsrMeasure*>> userOrder;

private:
    void need(const std::string& kernelName) {
        if (std::find(kernelNames.begin(), kernelNames.end(), kernelName) == kernelNames.end())
            kernelNames.push_back(kernelName);
    }

    // Depth first: a measure is ordered once every measure it names is.
    void visit(const std::string& name, const CDatUsrMeasure& user) {
        if (m_done.count(name)) return;
        const auto onPath = std::find(m_path.begin(), m_path.end(), name);
        if (onPath != m_path.end()) {
            std::string cycle;
            for (auto step = onPath; step != m_path.end(); ++step) cycle += *step + " -> ";
            refuse("User measures refer to each other in a cycle: " + cycle + name);
        }
        m_path.push_back(name);
        if (user.getUsrMeasureType() == eUsrMsrIpFunction) {
            need(user.getIpFunctionName());
        } else {
            for (const std::string& named : user.getFormula().names()) {
                if (krvFindNativeMeasure(named)) {
                    need(named);
                    continue;
                }
                const CDatUsrMeasure* next = m_handler.GetUsrMsr(named);
                if (next == nullptr) refuse("User measure " + name + " names " + named + ", which is no measure");
                visit(named, *next);
            }
        }
        m_path.pop_back();
        m_done.insert(name);
        userOrder.emplace_back(name, &user);
    }

    const CDatAnlHandler& m_handler;
    const std::string& m_group;
    std::vector<std::string> m_path;
    std::set<std::string> m_done;
};

// The values of every measure by name, as formulas read them (IntensityPercentile: its first
// percentile).
using ValueColumns = std::map<std::string, std::vector<double>>;

ValueColumns kernelValues(const KrvObjectMeasures& measured, const std::vector<std::string>& kernelNames,
                          const KrvMeasureParameters& params) {
    ValueColumns values;
    std::size_t column = 0;
    for (const std::string& name : kernelNames) {
        const std::size_t produced = krvMeasureColumnNames(name, params).size();
        values[name] = produced > 0 ? measured.columns[column].values
                                    : std::vector<double>(measured.labels.size(), 0.0);
        for (std::size_t i = 0; i < produced; ++i) values[measured.columns[column + i].name] = measured.columns[column + i].values;
        column += produced;
    }
    return values;
}

void evaluateUserMeasures(const MeasurePlan& plan, std::size_t objects, ValueColumns& values) {
    for (const auto& [name, user] : plan.userOrder) {
        std::vector<double>& column = values[name];
        if (user->getUsrMeasureType() == eUsrMsrIpFunction) {
            column = values.at(user->getIpFunctionName());
            continue;
        }
        column.resize(objects);
        for (std::size_t i = 0; i < objects; ++i)
            column[i] = user->evaluate([&](const std::string& named) { return values.at(named)[i]; });
    }
}

std::mutex g_targetsMutex;
COrlanSpreadsheet* g_spreadsheet = nullptr;
data::DictionaryPrivate* g_objectModel = nullptr;
std::function<void(const std::string&)> g_delivered;

void send(eMessage message, const std::string& name, KrvVariant param) {
    CService::SendMessage(eServiceProxy, eServiceProcess, CKrvString("result table"), CKrvString(name), message,
                          {std::move(param)});
}

}  // namespace

KrvResultTable krvMeasureWithGroup(const KrvVoxelView& labels, const KrvVoxelView* grey, const std::string& group,
                                   const KrvMeasureStep& step) {
    CDatAnlHandler& handler = *CDatAnlHandler::m_pInstance;
    const std::vector<CKrvString>* list = handler.GetGrpMsr(CKrvString(group));
    if (list == nullptr) refuse("No measure group " + group);
    const std::vector<std::string> names = distinctNames(*list);
    MeasurePlan plan(handler, group);
    for (const std::string& name : names) plan.add(name);

    const KrvMeasureParameters params = KrvMeasureParameters::Current();
    const KrvObjectMeasures measured = krvMeasureObjects(labels, grey, plan.kernelNames, params, step);
    ValueColumns values = kernelValues(measured, plan.kernelNames, params);
    evaluateUserMeasures(plan, measured.labels.size(), values);

    KrvResultTable table;
    table.measures.push_back("label");
    table.columns.emplace_back(measured.labels.begin(), measured.labels.end());
    for (const std::string& name : names) {
        const std::vector<std::string> columns =
            handler.GetUsrMsr(CKrvString(name)) ? std::vector<std::string>{name} : krvMeasureColumnNames(name, params);
        for (const std::string& column : columns) {
            table.measures.push_back(column);
            table.columns.push_back(values.at(column));
        }
    }
    return table;
}

void krvMeasureIntoTable(const KrvVoxelView& labels, const KrvVoxelView* grey, const std::string& group,
                         const std::string& result, const KrvMeasureStep& step) {
    KrvResultTables::Store(result, krvMeasureWithGroup(labels, grey, group, step));
    krvDeliverResultTable(result);
}

namespace {

template <class T>
void widen(const KrvImage& labels, KrvImage& widened) {
    const T* from = labels.Voxels<T>();
    std::int32_t* to = widened.Voxels<std::int32_t>();
    for (std::size_t i = 0, n = labels.GetVoxelCount(); i < n; ++i) to[i] = from[i];
}

}  // namespace

KrvVoxelView krvLabelView(const KrvImage& labels, KrvImage& widened) {
    const KrvVoxelType type = labels.GetType();
    if (type != KrvVoxelType::UInt8 && type != KrvVoxelType::UInt16) return labels.View();
    if (!widened.Allocate(labels.GetSizeX(), labels.GetSizeY(), labels.GetSizeZ(), KrvVoxelType::Int32, "label image"))
        throw KrvBaseException("no memory for an int32 copy of the " + labels.Describe() + " label image", __FILE__,
                               __LINE__);
    widened.SetVoxelSize(labels.GetVoxelSize());
    if (type == KrvVoxelType::UInt8) widen<std::uint8_t>(labels, widened);
    else widen<std::uint16_t>(labels, widened);
    return widened.View();
}

void krvSetResultTargets(COrlanSpreadsheet* spreadsheet, data::DictionaryPrivate* objectModel,
                         std::function<void(const std::string&)> delivered) {
    std::lock_guard<std::mutex> lock(g_targetsMutex);
    g_spreadsheet = spreadsheet;
    g_objectModel = objectModel;
    g_delivered = std::move(delivered);
}

// The proxy forgets its targets after each conversion, so each delivery names them again.
void krvDeliverResultTable(const std::string& name) {
    COrlanSpreadsheet* spreadsheet;
    data::DictionaryPrivate* objectModel;
    std::function<void(const std::string&)> delivered;
    {
        std::lock_guard<std::mutex> lock(g_targetsMutex);
        spreadsheet = g_spreadsheet;
        objectModel = g_objectModel;
        delivered = g_delivered;
    }
    if (spreadsheet == nullptr && objectModel == nullptr) return;
    if (spreadsheet) send(eMessageSetSpreadsheet, name, static_cast<void*>(spreadsheet));
    if (objectModel) send(eMessageSetObjectModel, name, static_cast<void*>(objectModel));
    send(eMessageConvertResults, name, name.c_str());
    if (delivered) delivered(name);
}

namespace {

const std::vector<double>& columnOf(const KrvResultTable& table, const std::string& tableName, const std::string& name) {
    for (std::size_t i = 0; i < table.measures.size() && i < table.columns.size(); ++i)
        if (table.measures[i] == name) return table.columns[i];
    refuse("Result table " + tableName + " has no column " + name);
}

std::vector<double> sieveLimits(const std::string& name) {
    CDatTami* sieve = CDatTamiHandler::m_pInstance->FindObj(CKrvString(name));
    if (sieve == nullptr) refuse("No sieve " + name);
    int count = 0;
    const float* values = sieve->GetData(count);
    if (values == nullptr || count < 1) refuse("Sieve " + name + " holds no limits");
    std::vector<double> limits(values, values + count);
    for (std::size_t i = 1; i < limits.size(); ++i)
        if (!(limits[i - 1] < limits[i])) refuse("The limits of sieve " + name + " do not increase");
    return limits;
}

}  // namespace

void krvSieveClasses(const std::string& tableName, const std::string& measure, const std::string& sieve,
                     const std::string& result) {
    const KrvResultTable* source = KrvResultTables::Find(tableName);
    if (source == nullptr) refuse("No result table " + tableName);
    const std::vector<double> values = columnOf(*source, tableName, measure);
    const std::vector<double> limits = sieveLimits(sieve);
    std::vector<double> labels;
    const auto labelColumn = std::find(source->measures.begin(), source->measures.end(), "label");
    if (labelColumn != source->measures.end())
        labels = source->columns[static_cast<std::size_t>(labelColumn - source->measures.begin())];
    else
        for (std::size_t i = 0; i < values.size(); ++i) labels.push_back(static_cast<double>(i + 1));

    KrvResultTable classes{{"label", measure, "Class"}, {labels, values, {}}};
    KrvResultTable counts{{"Class", "From", "To", "Count"}, {{}, {}, {}, std::vector<double>(limits.size() + 1, 0.0)}};
    for (const double value : values) {
        const auto k = std::upper_bound(limits.begin(), limits.end(), value) - limits.begin();
        classes.columns[2].push_back(static_cast<double>(k));
        counts.columns[3][static_cast<std::size_t>(k)] += 1;
    }
    for (std::size_t k = 0; k <= limits.size(); ++k) {
        counts.columns[0].push_back(static_cast<double>(k));
        counts.columns[1].push_back(k == 0 ? -INFINITY : limits[k - 1]);
        counts.columns[2].push_back(k == limits.size() ? INFINITY : limits[k]);
    }
    KrvResultTables::Store(result, std::move(classes));
    KrvResultTables::Store(result + "Counts", std::move(counts));
    krvDeliverResultTable(result);
    krvDeliverResultTable(result + "Counts");
}
