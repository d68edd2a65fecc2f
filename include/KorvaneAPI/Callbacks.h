// The client's callbacks: the suite calls them while it works, to let the client flush its
// user-interface events and to report its progress as a text and as a ratio. A client sets them
// before it starts work; none of the setters logs, throws or locks.
#pragma once
#include <string>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Stores `callback` (null to forget it) and installs the library's flush hook in the suite. The
// suite then asks the callback between steps of long work; its answer is handed back to the
// suite. With no callback stored the hook answers true.
KORVANEAPI_EXPORT void setFlushEventsCB(bool (*callback)());

// Stores `callback` (null to forget it) and installs the library's progress hook in the suite.
// The callback receives every progress message of the suite as it stands, whether or not its
// numbers could be read; none at all while the settings' progress switch is 0.
KORVANEAPI_EXPORT void setProgressMsgCB(void (*callback)(const std::string& message));

// Stores `callback` (null to forget it) and installs the same progress hook. The callback
// receives, before the message callback, the ratio of the whole numbers on either side of the
// first "/" of the message (numerator / denominator in single precision; "Slice 12/40 done"
// gives 0.3). It receives 0 when the message has no "/", when the denominator is 0, or when a
// number can't be read; the last case also writes a Warn line "Bad progression msg format : "
// followed by the message.
KORVANEAPI_EXPORT void setProgressRatioCB(void (*callback)(float ratio));
