# Images to and from NumPy arrays, and commands run by name with keyword parameters.
import numpy as np
import pytest

import korvane


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int32, np.float32])
def test_images_come_back_as_they_went_in(suite, dtype):
    plane = (np.arange(6 * 8).reshape(6, 8) * 7 % 200).astype(dtype)
    volume = np.stack([plane, plane[::-1], plane + 1])
    assert korvane.putImage("plane", plane) and korvane.putImage("volume", volume)
    assert korvane.putImage("strided", volume[:, ::2, ::-3])  # any layout: copied in C order
    for name, expected in (("plane", plane), ("volume", volume), ("strided", volume[:, ::2, ::-3])):
        image = korvane.getImage(name)
        assert image.dtype == dtype and image.shape == expected.shape
        np.testing.assert_array_equal(image, expected)
    assert not korvane.putImage("plane", plane)  # the name is taken
    assert korvane.getImageList() == ["plane", "volume", "strided"]
    assert korvane.removeImage("plane") and not korvane.removeImage("plane")
    assert korvane.getImage("plane") is None


@pytest.mark.parametrize("values, error", [
    (np.zeros((2, 2), np.int64), TypeError), (np.zeros((2, 2), bool), TypeError), ([[0.5]], TypeError),
    (np.zeros(3, np.uint8), ValueError), (np.zeros((1, 2, 2, 2), np.uint8), ValueError),
    (np.zeros((0, 3), np.uint8), ValueError)])
def test_wrong_images_are_refused_before_the_suite(suite, values, error):
    with pytest.raises(error):
        korvane.putImage("wrong", values)
    assert korvane.getImageList() == []


def test_commands_run_with_keyword_parameters(suite):
    ramp = np.arange(256, dtype=np.uint8).reshape(16, 16)
    korvane.putImage("ramp", ramp)
    assert korvane.runCommand("Threshold", input="ramp", output="band", low=50, high=200.5)
    np.testing.assert_array_equal(korvane.getImage("band") != 0, (ramp >= 50) & (ramp <= 200))

    with pytest.raises(korvane.SuiteError, match='Threshold: no image named "none"') as raised:
        korvane.runCommand("Threshold", input="none", output="nothing")
    assert raised.value.file.endswith("KrvCommandRunner.cpp") and raised.value.line > 0
    with pytest.raises(TypeError, match="parameter low"):
        korvane.runCommand("Threshold", input="ramp", output="nothing", low=object())

    korvane.setFlushEventsCB(lambda: False)
    try:
        assert not korvane.runCommand("Mean", input="ramp", output="stopped")
    finally:
        korvane.setFlushEventsCB(None)
    assert korvane.getImageList() == ["ramp", "band"]
