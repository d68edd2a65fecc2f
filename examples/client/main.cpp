// A client program of KorvaneAPI: starts the library on a settings folder, registers the progress
// callbacks, defines an object of every family, prints what the suite holds, and ends.
//   client [SETTINGS_FOLDER]
// Built by the project's own build (examples/CMakeLists.txt, run as the test example_client) and,
// against an installed package, by `scripts/dev.sh test` like examples/consumer.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include <unistd.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatSeg.h>      // the suite's segment store: its ring builder stands in for
#include <vantry_process/CProCmd.h>   // the suite's long processing, which reports progress

namespace {

int progressMessages = 0;
float lastRatio = 0.0f;

// The suite calls these while it works: a client would update its progress bar and keep its
// window alive. They run on the suite's thread, between its steps.
void onProgressRatio(float ratio) { lastRatio = ratio; }
std::string lastMessage;
void onProgressMessage(const std::string& message) {
    ++progressMessages;
    lastMessage = message;
    if (!isatty(STDOUT_FILENO)) return;  // a log or a pipe gets the last message only
    std::printf("\r  %-24s %3.0f%%", message.c_str(), 100.0f * lastRatio);
    std::fflush(stdout);
}
bool onFlushEvents() { return true; }  // false would ask the suite to stop early

template <class Names>
void printList(const char* what, const Names& names) {
    std::cout << what << ":";
    for (const std::string& name : names) std::cout << ' ' << name;
    std::cout << '\n';
}

void check(bool ok, const char* call) {
    if (!ok) throw std::runtime_error(std::string(call) + " failed (see the log line above)");
}

}  // namespace

int main(int argc, char** argv) {
    try {
        initKorvaneAPI(argc > 1 ? argv[1] : nullptr);  // null: the suite's default settings
    } catch (const std::exception& e) {  // KorvaneAPIException derives from it
        std::cerr << "start-up failed: " << e.what() << '\n';
        return 1;
    }
    int status = 0;
    try {
        setProgressRatioCB(&onProgressRatio);  // the ratio comes before its message
        setProgressMsgCB(&onProgressMessage);
        setFlushEventsCB(&onFlushEvents);

        // Image operators: a user filter and both kinds of lookup table.
        check(createFilter("magnitude", "sqrt(I1*I1 + I2*I2)"), "createFilter");
        check(createLut("invert", {255, 128, 0}), "createLut");
        const int erode[] = {0, 1, 1, 1, 0};
        check(createMorphoLut("erode", erode, 5, 1, -1), "createMorphoLut");
        std::cout << "filter magnitude = " << getFilterFormula("magnitude") << '\n';
        printList("lookup tables", getLutList());
        printList("morphological tables", getMorphoLutList());

        // A sieve: named float parameters.
        check(createSieve("grading", {0.5f, 1.0f, 2.0f, 4.0f}), "createSieve");
        std::cout << "sieve grading:";
        for (const float value : getSieveParams("grading")) std::cout << ' ' << value;
        std::cout << '\n';

        // A segment object, filled by the suite's ring builder, which reports its progress.
        check(createSegment("rings"), "createSegment");
        std::cout << "building rings:\n";
        const int rings = CDatSegHandler::m_pInstance->FindObj(CKrvString("rings"))->AppendRings(40, 6, 0, 0, 1);
        if (!isatty(STDOUT_FILENO)) std::cout << "  " << lastMessage << ' ' << 100.0f * lastRatio << '%';
        std::cout << "\n" << rings << " rings, " << getNbChain("rings") << " chains, " << progressMessages
                  << " progress messages\n";
        float x1 = 0, y1 = 0, x2 = 0, y2 = 0;
        check(getSegment("rings", 0, 0, x1, y1, x2, y2), "getSegment");
        std::cout << "first segment: (" << x1 << ", " << y1 << ") to (" << x2 << ", " << y2 << ")\n";

        // Measurement: a user measure over native ones, a measure group, and Feret directions.
        check(createUsrMsrByFormula("Roundness", "4 * pi * Area / Perimeter ^ 2", eMsrUnitDim5), "createUsrMsrByFormula");
        addMsrGrp("Shape");
        for (const char* measure : {"Area", "Perimeter", "Roundness"}) check(addMsrToMsrGrp("Shape", measure), "addMsrToMsrGrp");
        std::cout << "user measure Roundness = " << getUsrMsrFormula("Roundness") << '\n';
        printList("measure group Shape", getMsrGrpMsrList("Shape"));
        check(setFeret3dMsrParams(64), "setFeret3dMsrParams");  // throws KorvaneAPIException for N < 1
        std::cout << "Length3d measures along " << getMsrParams("Length3d").size() / 2 << " directions\n";

        // The command catalogue.
        const std::vector<std::string> commands = getCmdNameColl();
        std::cout << commands.size() << " commands; the first: ";
        if (const CProCmd* first = commands.empty() ? nullptr : getCmdInfo(commands.front()))
            std::cout << first->GetName().m_str << ": " << first->GetDescription().m_str << '\n';

        // Clean up what this client made (ending the library would drop it too).
        removeAllFilters();
        removeLut("invert");
        removeMorphoLut("erode");
        removeSieve("grading");
        removeSegment("rings");
        removeMsrGrp("Shape");
        removeUsrMsr("Roundness");
    } catch (const std::exception& e) {
        std::cerr << "client: " << e.what() << '\n';
        status = 1;
    }
    setProgressMsgCB(nullptr);
    setProgressRatioCB(nullptr);
    setFlushEventsCB(nullptr);
    endKorvaneAPI();
    return status;
}
