// Progress of the suite's long work, as the client sees it: "<what> k/n" messages through the
// progress slot of KrvExternalFunction, and the flush slot asked between steps so that the
// client's user interface stays alive (and may ask the work to stop).
#pragma once
#include <cstdint>
#include <string>

#include <vantry_util/KrvExport.h>

class VANTRY_UTIL_EXPORT KrvProgress {
public:
    // Work of `total` steps, reported as "<what> k/<total>". At most about a hundred messages
    // are sent, however many steps there are; the last step is always reported.
    KrvProgress(std::string what, std::uint64_t total);

    // Step `done` (1 to total) is finished: reports it when it is due and the settings'
    // progress switch is on, then asks the flush slot. False when the client answered false
    // to the flush, i.e. wants the work to stop.
    bool step(std::uint64_t done);

private:
    std::string m_what;
    std::uint64_t m_total;
    std::uint64_t m_every;
    std::uint64_t m_next;
};
