# Measuring a label image to a dict of arrays, checked against exact shapes and scikit-image.
import numpy as np
import pytest
from skimage.measure import regionprops

import korvane


def test_measure_gives_one_array_per_column(suite):
    labels = np.zeros((20, 30), np.int32)
    labels[2:6, 3:10] = 1
    labels[10:18, 20:25] = 4
    grey = (np.arange(600).reshape(20, 30) % 97).astype(np.uint16)
    assert korvane.putImage("labels", labels.astype(np.uint8)) and korvane.putImage("grey", grey)
    korvane.addMsrGrp("shape")
    for name in ("Area", "CentroidX", "CentroidY", "Area"):
        korvane.addMsrToMsrGrp("shape", name)

    table = korvane.measure("labels", "shape", grey="grey")
    assert list(table) == ["label", "Area", "CentroidX", "CentroidY"]
    assert all(column.dtype == np.float64 and column.shape == (2,) for column in table.values())
    regions = regionprops(labels)
    np.testing.assert_array_equal(table["label"], [region.label for region in regions])
    np.testing.assert_array_equal(table["Area"], [28, 40])
    np.testing.assert_allclose(table["CentroidY"], [region.centroid[0] for region in regions])
    np.testing.assert_allclose(table["CentroidX"], [region.centroid[1] for region in regions])

    assert korvane.runCommand("Measure", labels="labels", group="shape", result="stored")
    np.testing.assert_array_equal(korvane.getResultTable("stored")["Area"], table["Area"])
    assert korvane.getResultTable("none") is None
    with pytest.raises(korvane.SuiteError, match="No measure group none"):
        korvane.measure("labels", "none")
    with pytest.raises(korvane.Error, match='no image named "none"'):
        korvane.measure("none", "shape")
