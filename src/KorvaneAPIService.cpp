// The library's proxy service: the suite's libraries send it messages through the service
// registry, and it forwards status-bar texts to the client and converts named suite data for the
// Tarsel application into the spreadsheet and object model designated beforehand. Clients filter
// the log by source file and line: each logging statement here stands on the line its log has
// always named (36, 54, 94, 103, 110, 133, 142, 149, 174), and the service test holds them there.

#include <KorvaneAPI/KorvaneAPIService.h>

#include <vantry_data/DictionaryPrivate.h>
#include <vantry_process/OrlanSpreadsheet.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvVariant.h>

#include "CallFrame.h"

namespace {

// The two designations a conversion consumes.
struct Targets {
    COrlanSpreadsheet*& spreadsheet;
    data::DictionaryPrivate*& objectModel;
};

void convertResultTable(Targets targets, const CKrvString& name);
void convertNamedData(Targets targets, const CKrvString& name, int dataType);

// The registry hands over eight parameters of which the messages handled here read the first
// three; the first seven are fetched, as the suite has always fetched them.
constexpr int kFetchedParams = 7;

}  // namespace

// The registry owns the object from here; CService::DeleteAll() destroys it.
void KorvaneAPIService::AllocService()
{
    KAPI_LOG(Debug, "Creation of KorvaneAPI Service");
    new KorvaneAPIService();
}

KorvaneAPIService::KorvaneAPIService() : CService(eServiceProxy) {}

// Copies share the targets without owning them (a copy is not registered, so the registry still
// talks to the original); the base decides about registration.
KorvaneAPIService::KorvaneAPIService(const KorvaneAPIService& other) = default;
KorvaneAPIService& KorvaneAPIService::operator=(const KorvaneAPIService& other) = default;
KorvaneAPIService::~KorvaneAPIService() = default;

// Messages arrive through CService::SendMessage(9, sender, type, name, number, params): the
// registry calls this with the first four on the sender's thread (so the proxy takes no lock), and
// the parameter block is read through CService::GetParam. Other numbers are other services'.
void KorvaneAPIService::MessageToService(const eService& from, const CKrvString& objectType,
                                         const CKrvString& objectName, const eMessage& message)
{
    KAPI_LOG(Debug, "Receiving message from service ", static_cast<int>(from), ", objectType = ", objectType,
             ", objectName = ", objectName, ", messageId = ", static_cast<int>(message));

    const KrvVariant* params[kFetchedParams];
    for (int index = 0; index < kFetchedParams; ++index) params[index] = &CService::GetParam(index);

    switch (message) {
    case eMessageStatusBar:
        // Only the main pane (parameter 0 = 1) of the default window (parameter 1 = 0) is the client's.
        if (params[0]->asLong() == 1 && params[1]->asLong() == 0)
            KrvExternalFunction::getInstance().CallUpdStatusBarFunction(params[2]->asString().m_str.c_str());
        break;
    case eMessageSetSpreadsheet:
        m_spreadsheet = static_cast<COrlanSpreadsheet*>(params[0]->getVoidPtr());
        break;
    case eMessageSetObjectModel:
        m_objectModel = static_cast<data::DictionaryPrivate*>(params[0]->getVoidPtr());
        break;
    case eMessageConvertResults:
        convertResultTable({m_spreadsheet, m_objectModel}, params[0]->asString());
        break;
    case eMessageConvertData:
        convertNamedData({m_spreadsheet, m_objectModel}, params[0]->asString(), params[1]->asLong());
        break;
    default:
        break;  // other services' business
    }
}

namespace {

template <class NoTarget, class Refused1, class Refused2>
void convertData(Targets targets, const CKrvString& name, int dataType, NoTarget, Refused1, Refused2);

// Message 4303: a measurement result table, data type 3, the one kind this message converts.
void convertResultTable(Targets targets, const CKrvString& name)
{
    constexpr int type = 3;
    // No target: nearly always a sender that forgot 4301 or 4306, and the line names the data.
    const auto noTarget = [&] {
        KAPI_LOG(Warn, "No Tarsel spreadsheet selected", ", can't convert Korvane data ", name, " with data type ",
                 type, " to Tarsel");
    };
    // The suite refused the spreadsheet: an unknown name, or data the spreadsheet cannot take.
    // What krvToOrlanData writes (the title and the columns) belongs to the suite; a refused
    // conversion leaves the spreadsheet as it was, and the object model is still converted,
    // the two being independent views of the same data, so that a client whose spreadsheet
    // could not take the table still sees it in its object model.
    const auto spreadsheetRefused = [&] {
        KAPI_LOG(Warn, "Failed to convert Korvane data ", name, " with data type ", type, " to Tarsel");
    };
    // The suite refused the object model, where krvToObjectModel sets one entry per measure.
    // The sender goes on regardless: a conversion only ever warns, and both designations are
    // forgotten after it whatever its outcome, so the next result table needs new ones (a
    // sender that keeps its targets open sends 4301 and 4306 again before each conversion).
    const auto objectModelRefused = [&] {
        KAPI_LOG(Warn, "Failed to convert Korvane data ", name, " with data type ", type, " to Tarsel");
    };
    convertData(targets, name, type, noTarget, spreadsheetRefused, objectModelRefused);
}

// Message 4300: named data of the type its sender gives, with the same steps and warnings. The
// parameters of the messages this service handles (the registry keeps at least seven, and the
// suite's other services read theirs the same way):
//
//   1048  status bar     0: pane (1 = main pane)       1: window (0 = default)   2: the text
//   4301  spreadsheet    0: the COrlanSpreadsheet* to fill at the next conversion
//   4306  object model   0: the data::DictionaryPrivate* to fill at the next conversion
//   4303  result table   0: the name of the result table (data type 3)
//   4300  named data     0: the name of the data           1: its data type
//
// A sender that wants data in both views of the Tarsel application sends, in order, 4301 with
// the spreadsheet, 4306 with the dictionary, then 4300 or 4303 with the name. The targets are
// the sender's: the proxy neither copies nor frees them. A conversion that finds neither
// designation converts nothing and warns; the data stays in the suite under its name, so the
// sender can designate a target and send the message again.
void convertNamedData(Targets targets, const CKrvString& name, int dataType)
{
    const auto noTarget = [&] {
        KAPI_LOG(Warn, "No Tarsel spreadsheet selected", ", can't convert Korvane data ", name, " with data type ",
                 dataType, " to Tarsel");
    };
    // A data type the spreadsheet cannot take is refused like an unknown name: the suite's
    // conversion functions answer false for both, and the other target is still converted.
    // Each warning names the data and its type, so that a client filtering the log by this
    // file and line finds which conversion failed without a second look at the sender. The
    // two messages' warnings share their texts but not their lines.
    const auto spreadsheetRefused = [&] {
        KAPI_LOG(Warn, "Failed to convert Korvane data ", name, " with data type ", dataType, " to Tarsel");
    };
    // The same refusal on the object model's side; the spreadsheet, if designated, has had its
    // turn already (the order of the two conversions is the order the sender sees them in).
    // Whatever either answered, both designations are forgotten once this message is handled:
    // a sender's next conversion starts from its own 4301 and 4306 again.
    const auto objectModelRefused = [&] {
        KAPI_LOG(Warn, "Failed to convert Korvane data ", name, " with data type ", dataType, " to Tarsel");
    };
    convertData(targets, name, dataType, noTarget, spreadsheetRefused, objectModelRefused);
}

// The steps of a conversion, shared by both messages, which write their own warnings: convert into
// each designated target, then forget both, so that no later one writes into a closed target.
template <class NoTarget, class SpreadsheetRefused, class ObjectModelRefused>
void convertData(Targets targets, const CKrvString& name, int dataType, NoTarget warnNoTarget,
                 SpreadsheetRefused warnSpreadsheetRefused, ObjectModelRefused warnObjectModelRefused)
{
    if (targets.spreadsheet == nullptr && targets.objectModel == nullptr) return warnNoTarget();
    if (targets.spreadsheet != nullptr && !krvToOrlanData(name.m_str, dataType, targets.spreadsheet))
        warnSpreadsheetRefused();
    if (targets.objectModel != nullptr && !krvToObjectModel(name.m_str, targets.objectModel))
        warnObjectModelRefused();
    targets.spreadsheet = nullptr;
    targets.objectModel = nullptr;
}

}  // namespace

// Closing only logs: the targets belong to the sender, and the registry deletes the object next.
void KorvaneAPIService::CloseService()
{
    KAPI_LOG(Debug, "Closing of KorvaneAPI Service");
}
