// Values between Python and the library: any array-like in, checked before the suite sees it;
// NumPy arrays out.
#pragma once
#include <vector>

#include <pybind11/numpy.h>

#include "korvane.h"

namespace korvane_py {

// A one-dimensional array-like of integers that fit an int. TypeError for another kind of
// value, ValueError for another shape or a value out of range.
std::vector<int> intValues(const py::object& values, const char* what);

// A one-dimensional array-like of real numbers; finite ones must fit a float. TypeError for
// another kind of value, ValueError for another shape or a value out of range.
std::vector<float> floatValues(const py::object& values, const char* what);

// A new NumPy array holding a copy of `values`.
template <class T>
py::array_t<T> toArray(const std::vector<T>& values) {
    return py::array_t<T>(static_cast<py::ssize_t>(values.size()), values.data());
}

}  // namespace korvane_py
