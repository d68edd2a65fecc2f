# Images to and from NumPy arrays (copies and read-only views, voxel sizes), and commands run by
# name with keyword parameters checked against the catalogue.
import gc

import numpy as np
import pytest

import korvane
from conftest import logged, source_line


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int32, np.float32])
def test_images_come_back_as_they_went_in(suite, dtype):
    plane = (np.arange(6 * 8).reshape(6, 8) * 7 % 200).astype(dtype)
    volume = np.stack([plane, plane[::-1], plane + 1])
    assert korvane.putImage("plane", plane) and korvane.putImage("volume", volume, voxelSize=(3, 2, 0.5))
    assert korvane.putImage("strided", volume[:, ::2, ::-3], [1, 1, 1])  # any layout: copied in C order
    for name, expected in (("plane", plane), ("volume", volume), ("strided", volume[:, ::2, ::-3])):
        image = korvane.getImage(name)
        assert image.dtype == dtype and image.shape == expected.shape
        np.testing.assert_array_equal(image, expected)
    assert korvane.imageInfo("volume") == korvane.ImageInfo((3, 6, 8), np.dtype(dtype), (3.0, 2.0, 0.5))
    assert korvane.imageInfo("plane") == ((6, 8), np.dtype(dtype), (1.0, 1.0))
    view = korvane.getImage("volume", copy=False)
    np.testing.assert_array_equal(view, volume)
    assert np.shares_memory(view, korvane.getImage("volume", copy=False))
    assert not np.shares_memory(view, korvane.getImage("volume")) and korvane.getImage("volume").flags.writeable
    assert not korvane.putImage("plane", plane)  # the name is taken
    assert korvane.getImageList() == ["plane", "volume", "strided"]
    assert korvane.removeImage("plane") and not korvane.removeImage("plane")
    assert korvane.getImage("plane") is None and korvane.getImage("plane", copy=False) is None
    assert korvane.imageInfo("plane") is None


@pytest.mark.parametrize("values, voxel_size, error", [
    (np.zeros((2, 2), np.int64), None, TypeError), (np.zeros((2, 2), bool), None, TypeError), ([[0.5]], None, TypeError),
    (np.zeros(3, np.uint8), None, ValueError), (np.zeros((1, 2, 2, 2), np.uint8), None, ValueError),
    (np.zeros((0, 3), np.uint8), None, ValueError), (np.zeros((2, 2), np.uint8), (1, 1, 1), ValueError),
    (np.zeros((2, 2), np.uint8), (0, 1), ValueError), (np.zeros((2, 2), np.uint8), (np.inf, 1), ValueError),
    (np.zeros((2, 2), np.uint8), ("1", "1"), TypeError)])
def test_wrong_images_are_refused_before_the_suite(suite, values, voxel_size, error):
    with pytest.raises(error):
        korvane.putImage("wrong", values, voxelSize=voxel_size)
    assert korvane.getImageList() == []


def test_a_view_keeps_the_voxels_and_their_budget_after_the_image_goes(settings):
    (settings / "Tarsel.ini").write_text("[Logging]\nLevel = Debug\nFolder = log\n[Memory]\nMaximumAmount = 2000\n")
    image = np.arange(20 * 30, dtype=np.uint16).reshape(20, 30)  # 1200 bytes
    with korvane.session(settings):
        assert korvane.putImage("a", image)
        view = korvane.getImage("a", copy=False)
        with pytest.raises(ValueError):
            view[0, 0] = 1
        with pytest.raises(ValueError):
            view.flags.writeable = True
        assert korvane.removeImage("a")
        assert not korvane.putImage("b", image)  # the view still holds the bytes
        np.testing.assert_array_equal(view, image)
        del view
        gc.collect()
        assert korvane.putImage("b", image)
        view = korvane.getImage("b", copy=False)
    np.testing.assert_array_equal(view, image)  # the session ended, the view stays
    assert logged(settings, "Memory budget exceeded: image needs 1200 bytes, 1200 of 2000 in use") == [
        ("warning", "KrvMemoryBudget.cpp", source_line("host/vantry_util/src/KrvMemoryBudget.cpp", "__LINE__"))]


def test_commands_run_with_keyword_parameters(suite):
    ramp = np.arange(256, dtype=np.uint8).reshape(16, 16)
    korvane.putImage("ramp", ramp)
    assert korvane.runCommand("Threshold", input="ramp", output="band", low=np.int64(50), high=np.float32(200.5))
    np.testing.assert_array_equal(korvane.getImage("band") != 0, (ramp >= 50) & (ramp <= 200))
    assert korvane.createFilter("sum", "I1+I2")
    assert korvane.runCommand("UserFilter", inputs=("ramp", "band"), filter="sum", output="sum")
    np.testing.assert_array_equal(korvane.getImage("sum"), ramp + (korvane.getImage("band") != 0) * 255.0)
    assert korvane.runCommand("Resample", input="ramp", output="half", factor=0.5, interpolate=np.False_)
    assert korvane.getImage("half").shape == (8, 8)

    with pytest.raises(korvane.SuiteError, match='Threshold: no image named "none"') as raised:
        korvane.runCommand("Threshold", input="none", output="nothing")
    assert raised.value.file.endswith("KrvCommandRunner.cpp") and raised.value.line > 0
    with pytest.raises(korvane.SuiteError, match="Nothing: no such command"):
        korvane.runCommand("Nothing", input="ramp")

    korvane.setFlushEventsCB(lambda: False)
    try:
        assert not korvane.runCommand("Mean", input="ramp", output="stopped")
    finally:
        korvane.setFlushEventsCB(None)
    assert korvane.getImageList() == ["ramp", "band", "sum", "half"]


@pytest.mark.parametrize("command, parameters, error, message", [
    ("Threshold", {"lo": 1}, TypeError,
     'Threshold: unknown parameter "lo"; its parameters are input, output, low, high'),
    ("Threshold", {"low": "1"}, TypeError, "Threshold: parameter low must be a real number, not <class 'str'>"),
    ("Threshold", {"low": True}, TypeError, "parameter low must be a real number"),
    ("Threshold", {"low": np.nan}, ValueError, "Threshold: parameter low must be finite, not nan"),
    ("Threshold", {"low": 10**39}, ValueError, r"Threshold: parameter low = 1e\+39 lies outside \[-3.4e\+38, 3.4e\+38\]"),
    ("Mean", {"size": 0}, ValueError, r"Mean: parameter size = 0 lies outside \[1.0, 31.0\]"),
    ("Mean", {"size": 3.0}, TypeError, "Mean: parameter size must be an int"),
    ("Mean", {"size": True}, TypeError, "Mean: parameter size must be an int"),
    ("Label", {"connectivity": 5}, ValueError, "Label: parameter connectivity must be one of 4, 6, 8, 26, not 5"),
    ("Resample", {"interpolate": 1}, TypeError, "Resample: parameter interpolate must be True or False"),
    ("AutoThreshold", {"method": "mean"}, ValueError, "parameter method must be one of otsu, isodata, not 'mean'"),
    ("Histogram", {"result": ""}, ValueError, "Histogram: parameter result is empty"),
    ("Threshold", {"output": ["a", "b"]}, TypeError, "parameter output must be an image name"),
    ("UserFilter", {"inputs": ["ramp", 3]}, TypeError, "parameter inputs must be an image name or a list of them"),
    ("Measure", {"group": 1}, TypeError, "Measure: parameter group must be a str")])
def test_parameters_are_checked_against_the_catalogue_before_the_suite(suite, command, parameters, error, message):
    korvane.putImage("ramp", np.zeros((4, 4), np.uint8))
    names = {param.name for param in korvane.getCmdInfo(command).params}
    given = {name: value for name, value in (("input", "ramp"), ("labels", "ramp"), ("output", "out")) if name in names}
    with pytest.raises(error, match=message):
        korvane.runCommand(command, **(given | parameters))
    assert korvane.getImageList() == ["ramp"]
