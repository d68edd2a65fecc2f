// The docstrings of the library's functions: what the module adds (its Python types), then the
// function's text in the library's reference, docs/api.md, built into the module.
#include <cstring>
#include <deque>
#include <stdexcept>

#include "api_docs.h"
#include "korvane.h"

namespace korvane_py {

const char* apiDoc(const char* name, const char* note) {
    static std::deque<std::string> docs;  // pybind11 keeps the pointers it is given
    for (const ApiDoc& entry : kApiDocs) {
        if (std::strcmp(entry.name, name) != 0) continue;
        const std::string prefix = *note ? std::string(note) + "\n\n" : "";
        return docs.emplace_back(prefix + "From the library's reference (docs/api.md): " + entry.text).c_str();
    }
    throw std::logic_error(std::string("docs/api.md has no function ") + name);
}

}  // namespace korvane_py
