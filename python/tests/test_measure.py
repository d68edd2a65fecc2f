# Measuring label images, stored or given as arrays, to a dict of arrays or a structured array,
# checked against exact shapes and scikit-image; and the tables the suite delivers to Python.
import sys

import numpy as np
import pytest
from skimage.measure import regionprops

import korvane


@pytest.fixture
def labels():
    labels = np.zeros((20, 30), np.int32)
    labels[2:6, 3:10] = 1
    labels[10:18, 20:25] = 4
    return labels


@pytest.fixture
def shape_group(suite):
    korvane.addMsrGrp("shape")
    for name in ("Area", "CentroidX", "CentroidY", "Area"):
        korvane.addMsrToMsrGrp("shape", name)


def test_measure_gives_one_array_per_column(shape_group, labels):
    grey = (np.arange(600).reshape(20, 30) % 97).astype(np.uint16)
    assert korvane.putImage("labels", labels.astype(np.uint8)) and korvane.putImage("grey", grey)

    table = korvane.measure("labels", "shape", grey="grey")
    assert list(table) == ["label", "Area", "CentroidX", "CentroidY"]
    assert all(column.dtype == np.float64 and column.shape == (2,) for column in table.values())
    regions = regionprops(labels)
    np.testing.assert_array_equal(table["label"], [region.label for region in regions])
    np.testing.assert_array_equal(table["Area"], [28, 40])
    np.testing.assert_allclose(table["CentroidY"], [region.centroid[0] for region in regions])
    np.testing.assert_allclose(table["CentroidX"], [region.centroid[1] for region in regions])
    for given in (labels, labels.astype(np.uint16), korvane.getImage("labels", copy=False)):  # arrays where they lie
        for name, column in korvane.measure(given, "shape", grey=grey).items():
            np.testing.assert_array_equal(column, table[name])

    structured = korvane.measure("labels", "shape", structured=True)
    assert structured.dtype.names == tuple(table) and structured.shape == (2,)
    assert structured[1].tolist() == tuple(column[1] for column in table.values())
    assert korvane.runCommand("Measure", labels="labels", group="shape", result="stored")
    np.testing.assert_array_equal(korvane.getResultTable("stored")["Area"], table["Area"])
    assert korvane.getResultTable("stored", structured=True).tolist() == structured.tolist()
    assert korvane.getResultTable("none") is None

    with pytest.raises(korvane.SuiteError, match="No measure group none"):
        korvane.measure("labels", "none")
    with pytest.raises(korvane.Error, match='no image named "none"'):
        korvane.measure("none", "shape")
    with pytest.raises(ValueError, match="voxelSize is for labels given as an array"):
        korvane.measure("labels", "shape", voxelSize=(1, 1))
    with pytest.raises(TypeError, match="an image must be"):
        korvane.measure(labels.astype(np.int64), "shape")


def test_measures_follow_the_voxel_size(shape_group, labels):
    # A voxel of 2 (y) by 3 (x): areas six times the counts, centroids at the voxels' positions.
    assert korvane.putImage("labels", labels, voxelSize=(2, 3))
    expected = {"label": [1, 4], "Area": [6 * 28, 6 * 40], "CentroidX": [3 * 6, 3 * 22], "CentroidY": [2 * 3.5, 2 * 13.5]}
    for table in (korvane.measure("labels", "shape"), korvane.measure(labels, "shape", voxelSize=(2, 3))):
        assert {name: column.tolist() for name, column in table.items()} == expected
    assert korvane.runCommand("Measure", labels="labels", group="shape", result="stored")
    assert korvane.getResultTable("stored")["Area"].tolist() == expected["Area"]


def test_delivered_tables_reach_the_result_target(shape_group, labels, monkeypatch):
    korvane.putImage("labels", labels)
    korvane.createSieve("limits", [30, 100])
    delivered = []
    korvane.setResultTarget(lambda name, table: delivered.append((name, {k: v.tolist() for k, v in table.items()})))
    assert korvane.runCommand("Measure", labels="labels", group="shape", result="shapes")
    assert korvane.runCommand("SieveClasses", table="shapes", sieve="limits", result="classes")
    assert delivered == [
        ("shapes", {"label": [1, 4], "Area": [28, 40], "CentroidX": [6, 22], "CentroidY": [3.5, 13.5]}),
        ("classes", {"label": [1, 4], "Area": [28, 40], "Class": [0, 1]}),
        ("classesCounts", {"Class": [0, 1, 2], "From": [-np.inf, 30, 100], "To": [30, 100, np.inf], "Count": [1, 1, 0]})]

    unraisable = []
    monkeypatch.setattr(sys, "unraisablehook", unraisable.append)
    korvane.setResultTarget(lambda name, table: 1 / 0)
    assert korvane.runCommand("Measure", labels="labels", group="shape", result="again")  # the suite goes on
    assert len(unraisable) == 1 and isinstance(unraisable[0].exc_value, ZeroDivisionError)
    assert korvane.getResultTable("again")["Area"].tolist() == [28, 40]

    with pytest.raises(TypeError, match="a result target must be callable or None"):
        korvane.setResultTarget(1)
    korvane.setResultTarget(None)
    delivered.clear()
    assert korvane.runCommand("Measure", labels="labels", group="shape", result="unseen")
    assert delivered == [] and korvane.getResultTable("unseen") is not None


def test_the_result_target_ends_with_the_session(settings, labels):
    delivered = []
    for session in ("first", "second"):
        with korvane.session(settings):
            korvane.addMsrGrp("area")
            korvane.addMsrToMsrGrp("area", "Area")
            korvane.putImage("labels", labels)
            if session == "first":
                korvane.setResultTarget(lambda name, table: delivered.append(session))
            assert korvane.runCommand("Measure", labels="labels", group="area", result="table")
    assert delivered == ["first"]
    with pytest.raises(korvane.Error, match="no session is running"):
        korvane.setResultTarget(None)
