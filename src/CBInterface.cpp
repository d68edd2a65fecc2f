// The client's callbacks and the two hooks the suite calls while it works: the flush hook and
// the progress hook, which reads a ratio from the numbers around the first "/" of the suite's
// progress message and hands the ratio and the message to the client.
#include <KorvaneAPI/Callbacks.h>

#include <string>

#include <boost/lexical_cast.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvExternalFunction.h>

#include "CallFrame.h"

namespace {

using FlushEventsCB = bool (*)();
using ProgressMsgCB = void (*)(const std::string&);
using ProgressRatioCB = void (*)(float);

// One record per process, made on first use. The pointers are written without the lock:
// clients set them before the suite starts working. The mutex serialises the hooks, so that
// a flush and a progress report never overlap and no callback is re-entered from another thread.
struct CallbackRecord {
    ProgressMsgCB progressMsg = nullptr;
    ProgressRatioCB progressRatio = nullptr;
    FlushEventsCB flushEvents = nullptr;
    boost::mutex mutex;
};

CallbackRecord& callbacks() {
    static CallbackRecord record;
    return record;
}

bool flushEventsHook() {
    CallbackRecord& record = callbacks();
    boost::lock_guard<boost::mutex> lock(record.mutex);
    if (record.flushEvents) return record.flushEvents();
    return true;
}

void handleProgressMsg(const std::string& message);

void progressMsgHook(const char* text) {
    CallbackRecord& record = callbacks();
    boost::lock_guard<boost::mutex> lock(record.mutex);
    const std::string message(text);
    handleProgressMsg(message);
}

}  // namespace

void setFlushEventsCB(bool (*callback)()) {
    callbacks().flushEvents = callback;
    KrvExternalFunction::getInstance().setFlushEventsFunction(&flushEventsHook);
}

void setProgressMsgCB(void (*callback)(const std::string&)) {
    callbacks().progressMsg = callback;
    KrvExternalFunction::getInstance().setProgressMsgFunction(&progressMsgHook);
}

void setProgressRatioCB(void (*callback)(float)) {
    callbacks().progressRatio = callback;
    KrvExternalFunction::getInstance().setProgressMsgFunction(&progressMsgHook);
}

namespace {

// The suite writes its progress as a sentence around "k/n" ("Processing slice 12/40 done").
// The numerator runs back from the first "/" to the nearest blank (or the start of the
// message), the denominator forward to the next blank (or the end). Either text may be empty
// or hold other characters; then it does not convert, the ratio stays 0 and a Warn line says
// so, but the client still receives the message.
//
// The progress switch is read twice: before the parsing (off: nothing at all happens) and again
// before the ratio callback; the message callback does not depend on the second reading.
void handleProgressMsg(const std::string& message) {
    const CKrvSettingDoc& settings = CKrvSettingDoc::getInstance();
    if (settings.getProgress() == 0) return;

    float ratio = 0.0f;
    const std::string::size_type slash = message.find('/');
    if (slash != std::string::npos) {
        const std::string::size_type blankBefore = message.rfind(' ', slash);
        const std::string::size_type numeratorStart = blankBefore == std::string::npos ? 0 : blankBefore + 1;
        const std::string::size_type blankAfter = message.find(' ', slash + 1);
        const std::string numeratorText = message.substr(numeratorStart, slash - numeratorStart);
        const std::string denominatorText =
            blankAfter == std::string::npos ? message.substr(slash + 1) : message.substr(slash + 1, blankAfter - slash - 1);

        try {
            const int numerator = boost::lexical_cast<int>(numeratorText);
            const int denominator = boost::lexical_cast<int>(denominatorText);
            if (denominator != 0) ratio = static_cast<float>(numerator) / static_cast<float>(denominator);
        } catch (const boost::bad_lexical_cast&) {
            // A message the suite did not mean as "k/n" (a path, a date, "x /4" whose
            // numerator text is empty), or a number outside 32 bits. lexical_cast takes an
            // optional sign and decimal digits only: no blanks, no empty text, no "0x", no
            // decimal point ("12.5/40" is a bad message, not a ratio of 0.3125).
            //
            // The text still reaches the client, with ratio 0: this is the one exception
            // the library catches, and it goes no further.
            //
            // This warning has always been written from line 112 of this file, and readers
            // of the suite's logs know it by that place: keep it there (a test holds it).
            // Anything new in this function goes below it, or into a helper of its
            // own.
            KAPI_LOG(Warn, "Bad progression msg format : ", message);
            ratio = 0.0f;
        }
    }

    const CallbackRecord& record = callbacks();
    if (settings.getProgress() != 0 && record.progressRatio) record.progressRatio(ratio);
    if (record.progressMsg) record.progressMsg(message);
}

}  // namespace
