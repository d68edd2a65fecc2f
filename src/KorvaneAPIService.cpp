// The library's proxy service: the suite's libraries send it messages through the service
// registry, and it forwards status-bar texts to the client and converts named suite data for the
// Tarsel application into the spreadsheet and object model designated beforehand.
//
// Clients filter the log by source file and line: the log lines of this file keep fixed line
// numbers, held there by tests/service_test.cpp.

#include <KorvaneAPI/KorvaneAPIService.h>

#include <vantry_data/DictionaryPrivate.h>
#include <vantry_process/OrlanSpreadsheet.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvVariant.h>

#include "CallFrame.h"

namespace {

// The log lines of a conversion's three warnings. Both conversion messages share the steps, but
// each keeps the lines its warnings have always had in the log.
struct ConversionLines {
    int noTarget;
    int spreadsheetRefused;
    int objectModelRefused;
};
constexpr ConversionLines kResultTableLines{94, 103, 110};
constexpr ConversionLines kNamedDataLines{133, 142, 149};
void convertData(COrlanSpreadsheet*& spreadsheet, data::DictionaryPrivate*& objectModel, const CKrvString& name,
                 int dataType, const ConversionLines& lines);

}  // namespace

// The registry owns the object from here; CService::DeleteAll() destroys it.
void KorvaneAPIService::AllocService()
{
    KAPI_LOG(Debug, "Creation of KorvaneAPI Service");
    new KorvaneAPIService();
}

namespace {

// The data type of a result table, the only kind message 4303 converts.
constexpr int kResultTableType = 3;

// The registry hands over eight parameters of which the messages handled here read the first
// three; the first seven are fetched, as the suite has always fetched them.
constexpr int kFetchedParams = 7;

}  // namespace

void KorvaneAPIService::MessageToService(const eService& from, const CKrvString& objectType,
                                         const CKrvString& objectName, const eMessage& message)
{
    KAPI_LOG(Debug, "Receiving message from service ", static_cast<int>(from), ", objectType = ", objectType,
             ", objectName = ", objectName, ", messageId = ", static_cast<int>(message));

    const KrvVariant* params[kFetchedParams];
    for (int index = 0; index < kFetchedParams; ++index) params[index] = &CService::GetParam(index);

    switch (message) {
    case eMessageStatusBar:
        // Only the main pane (parameter 0 = 1) of the default window (parameter 1 = 0) reaches
        // the client; the suite's other panes have no place in a client application.
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
        convertData(m_spreadsheet, m_objectModel, params[0]->asString(), kResultTableType, kResultTableLines);
        break;
    case eMessageConvertData:
        convertData(m_spreadsheet, m_objectModel, params[0]->asString(), params[1]->asLong(), kNamedDataLines);
        break;
    default:
        break;  // other services' business
    }
}

// How the suite talks to the proxy
// --------------------------------
//
// Every message arrives through CService::SendMessage(9, sender, type, name, number, params);
// the registry then calls MessageToService with the first four, and the handler reads the
// parameter block through CService::GetParam. The numbers and their parameters:
//
//   1048  status bar     0: pane (1 = main pane)       1: window (0 = default)   2: the text
//   4301  spreadsheet    0: the COrlanSpreadsheet* to fill at the next conversion
//   4306  object model   0: the data::DictionaryPrivate* to fill at the next conversion
//   4303  result table   0: the name of the result table (data type 3)
//   4300  named data     0: the name of the data           1: its data type
//
// A sender that wants a result table in both views of the Tarsel application sends, in order:
//
//   4301 with the spreadsheet, 4306 with the dictionary, 4303 with the table's name.
//
// After the conversion both designations are forgotten, whatever the outcome, so a later
// conversion never writes into a spreadsheet that its sender has since closed. A conversion
// that finds no designation at all warns and converts nothing: that is nearly always a sender
// that forgot 4301 or 4306, and the warning names the data so that it can be found.
//
// The targets are the sender's: the proxy neither copies nor frees them, and a copy of the
// service shares them (the copy is not registered, so the registry still talks to the
// original). The proxy takes no lock: the registry delivers messages on the thread that
// sends them, and the suite sends them from the thread the client called it on.
//
// What the conversions write belongs to the suite: krvToOrlanData replaces the spreadsheet's
// title and columns, krvToObjectModel sets one dictionary entry per measure. A conversion that
// the suite refuses (an unknown name, a data type the spreadsheet cannot take) leaves its
// target as it was and writes a Warn line; the other target is still converted.
//
// Messages of other numbers are other services' business and are ignored here, after the
// Debug line that records their arrival.
//
// The lines of this file's log, as clients filter them:
//
//   line  level  when
//     36  Debug  the service is created (start-up)
//     54  Debug  a message arrives, with its sender, object type and name, and number
//     94  Warn   a result table (4303) arrives with no target designated
//    103  Warn   the suite refused to write a result table into the spreadsheet
//    110  Warn   the suite refused to write a result table into the object model
//    133  Warn   named data (4300) arrives with no target designated
//    142  Warn   the suite refused to write named data into the spreadsheet
//    149  Warn   the suite refused to write named data into the object model
//    174  Debug  the registry closes the service (shut-down)
//
// The conversion warnings come from one helper below; kResultTableLines and kNamedDataLines
// give each message its lines. The three Debug lines come from their own statements, which
// therefore stand on exactly those lines of this file: when you edit above one of them, take
// out as many lines as you add, and the service test tells you if a line moved.
//

namespace {

// Converts `name` into each designated target, then forgets both: each designation serves one
// conversion. A refused spreadsheet conversion does not stop the object-model one, since the two
// targets are independent views of the same data. Warnings only: the sender goes on regardless.
void convertData(COrlanSpreadsheet*& spreadsheet, data::DictionaryPrivate*& objectModel, const CKrvString& name,
                 int dataType, const ConversionLines& lines)
{
    if (spreadsheet == nullptr && objectModel == nullptr) {
        KAPI_LOG_AT(Warn, lines.noTarget, "No Tarsel spreadsheet selected", ", can't convert Korvane data ", name,
                    " with data type ", dataType, " to Tarsel");
        return;
    }
    if (spreadsheet != nullptr && !krvToOrlanData(name.m_str, dataType, spreadsheet))
        KAPI_LOG_AT(Warn, lines.spreadsheetRefused, "Failed to convert Korvane data ", name, " with data type ",
                    dataType, " to Tarsel");
    if (objectModel != nullptr && !krvToObjectModel(name.m_str, objectModel))
        KAPI_LOG_AT(Warn, lines.objectModelRefused, "Failed to convert Korvane data ", name, " with data type ",
                    dataType, " to Tarsel");
    spreadsheet = nullptr;
    objectModel = nullptr;
}

}  // namespace

KorvaneAPIService::KorvaneAPIService() : CService(eServiceProxy) {}

// Copies share the targets without owning them; the base decides about registration.
KorvaneAPIService::KorvaneAPIService(const KorvaneAPIService& other) = default;
KorvaneAPIService& KorvaneAPIService::operator=(const KorvaneAPIService& other) = default;
KorvaneAPIService::~KorvaneAPIService() = default;

// Closing only logs: the targets belong to the sender, and the registry deletes the object
// right after.
void KorvaneAPIService::CloseService()
{
    KAPI_LOG(Debug, "Closing of KorvaneAPI Service");
}
