// Measuring the objects of a label image with a measure group, to a dict of NumPy arrays keyed
// by column name ("label", then the group's measures) or a structured array; the suite's stored
// result tables read the same way; and the tables the suite delivers through the proxy service
// handed to a Python target, as the suite hands them to an application's spreadsheet.
#include <memory>
#include <optional>

#include <vantry_process/KrvMeasure.h>
#include <vantry_process/OrlanSpreadsheet.h>

#include <pybind11/stl.h>

#include "voxels.h"

namespace korvane_py {

namespace {

py::array_t<double> column(const std::vector<double>& values) {
    return py::array_t<double>(static_cast<py::ssize_t>(values.size()), values.data());
}

// Each column a new float64 array, in the table's order.
py::dict tableColumns(const KrvResultTable& table) {
    py::dict columns;
    for (std::size_t k = 0; k < table.measures.size(); ++k) columns[py::str(table.measures[k])] = column(table.columns[k]);
    return columns;
}

// The same columns as the fields of one structured array, a row per object.
py::object asTable(py::dict columns, bool structured) {
    if (!structured) return std::move(columns);
    const py::module_ numpy = py::module_::import("numpy");
    py::list fields;
    for (const auto& [name, values] : columns) fields.append(py::make_tuple(name, "f8"));
    const py::ssize_t rows = columns.empty() ? 0 : py::len(columns.begin()->second);
    py::object table = numpy.attr("empty")(rows, fields);
    for (const auto& [name, values] : columns) table[name] = values;
    return table;
}

// An image to measure, stored or given as an array, and what keeps its voxels while the work runs
// with the GIL released: a share of the stored voxels (another thread may remove the image
// meanwhile), or the array.
class MeasuredImage {
public:
    MeasuredImage(const py::object& image, const VoxelSizes& voxelSize, bool labels) {
        if (py::isinstance<py::str>(image)) {
            const KrvImage& stored = storedImage(image.cast<std::string>());
            m_share = stored.ShareVoxels();
            view = labels ? krvLabelView(stored, m_widened) : stored.View();
            return;
        }
        ArrayImage given = arrayImage(image, voxelSize);
        if (labels && (given.view.type == KrvVoxelType::UInt8 || given.view.type == KrvVoxelType::UInt16)) {
            given.values = given.values.attr("astype")(py::dtype::of<std::int32_t>());  // label files are often 8 or 16 bits
            given.view.data = given.values.mutable_data();
            given.view.type = KrvVoxelType::Int32;
        }
        m_array = given.values;
        view = given.view;
    }

    KrvVoxelView view;

private:
    std::shared_ptr<const void> m_share;
    KrvImage m_widened;
    py::object m_array;
};

py::object measure(const py::object& labels, const std::string& group, const py::object& grey,
                   const VoxelSizes& voxelSize, bool structured) {
    requireSession();
    if (voxelSize && py::isinstance<py::str>(labels))
        throw py::value_error("voxelSize is for labels given as an array: the stored image " + describe(labels) +
                              " has its own");
    const MeasuredImage labelImage(labels, voxelSize, true);
    std::optional<MeasuredImage> greyImage;
    if (!grey.is_none()) greyImage.emplace(grey, voxelSize, false);
    KrvResultTable table;
    {
        const LongWork work;
        table = krvMeasureWithGroup(labelImage.view, greyImage ? &greyImage->view : nullptr, group);
    }
    return asTable(tableColumns(table), structured);
}

std::optional<py::object> resultTable(const std::string& name, bool structured) {
    const KrvResultTable* table = KrvResultTables::Find(name);
    if (!table) return std::nullopt;
    return asTable(tableColumns(*table), structured);
}

// The module's spreadsheet, which the proxy service fills at each delivery, and the Python
// target it is handed to; kept for the life of the process.
COrlanSpreadsheet* deliveredSheet = nullptr;
py::object* resultTarget = nullptr;

// On the thread that delivers (the one running the command): the sheet holds the table `name`
// unless the proxy refused to convert it (its Warn line then tells), and is not handed on then.
void resultDelivered(const std::string& name) {
    withGil("korvane result target", 0, [&] {
        const py::object target = *resultTarget;
        if (target.is_none() || deliveredSheet->title() != name) return 0;
        py::dict columns;
        for (const COrlanSpreadsheet::Column& delivered : deliveredSheet->columns())
            columns[py::str(delivered.name)] = column(delivered.values);
        target(name, columns);
        return 0;
    });
}

void setResultTarget(const py::object& target) {
    requireSession();
    requireCallableOrNone(target, "a result target");
    *resultTarget = target;
    if (target.is_none()) krvSetResultTargets(nullptr, nullptr);
    else krvSetResultTargets(deliveredSheet, nullptr, &resultDelivered);
}

}  // namespace

void forgetResultTarget() {
    krvSetResultTargets(nullptr, nullptr);
    *resultTarget = py::none();
}

void bindMeasure(py::module_& m) {
    deliveredSheet = new COrlanSpreadsheet;
    resultTarget = new py::object(py::none());
    py::module_::import("atexit").attr("register")(py::cpp_function(&forgetResultTarget));
    m.def("measure", &measure, py::arg("labels"), py::arg("group"), py::arg("grey") = py::none(),
          py::arg("voxelSize") = py::none(), py::arg("structured") = false,
          "Measures the objects of the label image `labels` (and the grey image `grey`) with the measure group "
          "`group`. Each image is the name of a stored one or an array (uint8, uint16 or int32 labels), measured "
          "where it lies; voxelSize gives an array of labels its voxel size (one per axis). A dict of float64 "
          "arrays, 'label' first, then one per measure of the group; with structured=True one structured array "
          "with those fields.");
    m.def("getResultTable", inSession(&resultTable), py::arg("name"), py::arg("structured") = false,
          "The suite's result table `name` (made by the Measure command, for one) as a dict of float64 arrays, "
          "or a structured array; None when there is none.");
    m.def("setResultTarget", &setResultTarget, py::arg("target"),
          "target(name: str, table: dict of float64 arrays) receives each result table the suite delivers "
          "through the proxy service (the Measure and SieveClasses commands), on the thread that runs the "
          "command; None forgets it, and so does the end of the session. An exception it raises goes to "
          "sys.unraisablehook.");
}

}  // namespace korvane_py
