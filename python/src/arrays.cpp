#include "arrays.h"

#include <cfloat>
#include <climits>
#include <cmath>

namespace korvane_py {

namespace {

py::array oneDimensional(const py::object& values, const char* what) {
    py::array array = py::module_::import("numpy").attr("asarray")(values);
    if (array.ndim() != 1)
        throw py::value_error(std::string(what) + " must be one-dimensional, not of shape " +
                              describe(array.attr("shape")));
    return array;
}

void requireKind(const py::array& array, const char* kinds, const char* what, const char* expected) {
    if (std::string(kinds).find(array.dtype().kind()) == std::string::npos)
        throw py::type_error(std::string(what) + " must be " + expected + ", not " + describe(array.dtype()));
}

}  // namespace

std::vector<int> intValues(const py::object& values, const char* what) {
    const py::array array = oneDimensional(values, what);
    if (array.size() == 0) return {};  // [] reads as float64: no kind to check
    requireKind(array, "iu", what, "integers");
    if (array.attr("min")() < py::int_(INT_MIN) || array.attr("max")() > py::int_(INT_MAX))
        throw py::value_error(std::string(what) + " must lie from " + std::to_string(INT_MIN) + " to " +
                              std::to_string(INT_MAX));
    const auto ints = py::array_t<int, py::array::c_style | py::array::forcecast>::ensure(array);
    return {ints.data(), ints.data() + ints.size()};
}

std::vector<float> floatValues(const py::object& values, const char* what) {
    const py::array array = oneDimensional(values, what);
    if (array.size() == 0) return {};
    requireKind(array, "fiu", what, "real numbers");
    const auto doubles = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(array);
    std::vector<float> result;
    result.reserve(static_cast<std::size_t>(doubles.size()));
    for (const double value : std::vector<double>(doubles.data(), doubles.data() + doubles.size())) {
        if (std::isfinite(value) && std::fabs(value) > FLT_MAX)
            throw py::value_error(std::string(what) + " must fit a float32: " + std::to_string(value));
        result.push_back(static_cast<float>(value));
    }
    return result;
}

}  // namespace korvane_py
