// Measuring the objects of a stored label image with a measure group, to a dict of NumPy arrays
// keyed by column name ("label", then the group's measures); and the suite's stored result tables
// read the same way.
#include <optional>

#include <vantry_data/CDatImg.h>
#include <vantry_process/KrvMeasure.h>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "korvane.h"

namespace korvane_py {

namespace {

const KrvImage& storedImage(const std::string& name) {
    const CDatImg* stored = CDatImgHandler::m_pInstance->FindObj(CKrvString(name));
    if (!stored) throw ModuleError("korvane: no image named \"" + name + "\"");
    return stored->GetImage();
}

// Each column a new float64 array, in the table's order.
py::dict tableColumns(const KrvResultTable& table) {
    py::dict columns;
    for (std::size_t k = 0; k < table.measures.size(); ++k) {
        const std::vector<double>& values = table.columns[k];
        columns[py::str(table.measures[k])] =
            py::array_t<double>(static_cast<py::ssize_t>(values.size()), values.data());
    }
    return columns;
}

py::dict measure(const std::string& labels, const std::string& group, const std::optional<std::string>& grey) {
    requireSession();
    KrvImage widened;
    const KrvVoxelView labelView = krvLabelView(storedImage(labels), widened);
    std::optional<KrvVoxelView> greyView;
    if (grey) greyView = storedImage(*grey).View();
    KrvResultTable table;
    {
        const LongWork work;
        table = krvMeasureWithGroup(labelView, greyView ? &*greyView : nullptr, group);
    }
    return tableColumns(table);
}

std::optional<py::dict> resultTable(const std::string& name) {
    const KrvResultTable* table = KrvResultTables::Find(name);
    if (!table) return std::nullopt;
    return tableColumns(*table);
}

}  // namespace

void bindMeasure(py::module_& m) {
    m.def("measure", &measure, py::arg("labels"), py::arg("group"), py::arg("grey") = py::none(),
          "Measures the objects of the stored label image `labels` (and the grey image `grey`) with the measure "
          "group `group`: a dict of float64 arrays, 'label' first, then one per measure of the group.");
    m.def("getResultTable", inSession(&resultTable), py::arg("name"),
          "The suite's result table `name` (made by the Measure command, for one) as a dict of float64 arrays; "
          "None when there is none.");
}

}  // namespace korvane_py
