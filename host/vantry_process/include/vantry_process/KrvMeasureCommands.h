// The bodies of the catalogue commands Measure and SieveClasses. They are written for any call
// object with KrvCommandCall's accessors, so that they can be run without the runner, and
// krvRegisterMeasureCommands gives them to the runner (the process service calls it when it starts).
#pragma once
#include <string>

#include <vantry_data/CDatImg.h>
#include <vantry_process/KrvCommandRunner.h>
#include <vantry_process/KrvMeasure.h>
#include <vantry_util/KrvBaseException.h>

// "grey" names a stored image, or is "none".
template <class Call>
void krvMeasureCommandBody(Call& call) {
    KrvImage widened;
    const KrvVoxelView labels = krvLabelView(call.Image("labels"), widened);
    const std::string& greyName = call.Text("grey");
    KrvVoxelView grey;
    if (greyName != "none") {
        const CDatImg* image = CDatImgHandler::m_pInstance->FindObj(CKrvString(greyName));
        if (image == nullptr) throw KrvBaseException("no image " + greyName, __FILE__, __LINE__);
        grey = image->GetImage().View();
    }
    krvMeasureIntoTable(labels, greyName != "none" ? &grey : nullptr, call.Text("group"), call.Text("result"),
                        [&call](long done, long total) { call.Step("Measuring", done, total); });
}

template <class Call>
void krvSieveClassesCommandBody(Call& call) {
    krvSieveClasses(call.Text("table"), call.Text("measure"), call.Text("sieve"), call.Text("result"));
}

inline void krvRegisterMeasureCommands() {
    krvRegisterCommandBody("Measure", [](KrvCommandCall& call) { krvMeasureCommandBody(call); });
    krvRegisterCommandBody("SieveClasses", [](KrvCommandCall& call) { krvSieveClassesCommandBody(call); });
}
