// Calls of the sieve family.
#include <KorvaneAPI/Sieves.h>

#include "Calls.h"

namespace korvane {

void addSieveCalls(CallTable& table) {
    table.add("createSieve", {"createSieve NAME [VALUE...]", "creates a sieve holding the values (any number)", 1,
                              kAnyNumber, [](const Args& args) {
                                  return succeeded(createSieve(args[0], toFloats(args, 1, "VALUE")), "createSieve");
                              }});
    table.add("getSieveParams", {"getSieveParams NAME", "the sieve's values, one per line", 1, 1,
                                 [](const Args& args) { return said(getSieveParams(args[0])); }});
    table.add("removeSieve", {"removeSieve NAME", "removes a sieve (a warning when there is none)", 1, 1,
                              [](const Args& args) {
                                  removeSieve(args[0]);
                                  return Output{};
                              }});
    table.add("getSieveList", {"getSieveList", "the names of the sieves", 0, 0,
                               [](const Args&) { return said(getSieveList()); }});
}

}  // namespace korvane
