// Start and end cycles with objects of every family made in between: every start finds the
// stores empty, every object made in a cycle can be made again in the next one (its name is
// free again), and under the asan preset nothing a cycle made outlives it.
#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>

#include "support/EveryFamily.h"
#include "support/TestSupport.h"

namespace {

TEST(CyclesTest, FiftyStartsFindTheStoresEmpty) {
    const std::string folder = kapitest::makeSettingsFolder();
    auto log = kapitest::LogCapture::install();
    for (int cycle = 0; cycle < 50; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        initKorvaneAPI(folder.c_str());
        EXPECT_TRUE(kapitest::storesEmpty());
        EXPECT_TRUE(kapitest::makeOneOfEach(cycle % 2));  // the names of two cycles ago again
        EXPECT_FALSE(kapitest::storesEmpty());
        log->clear();
        endKorvaneAPI();
    }
    log->uninstall();
    kapitest::removeFolder(folder);
}

}  // namespace
