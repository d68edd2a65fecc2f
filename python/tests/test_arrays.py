# NumPy arrays of every supported dtype in any layout and byte order, in and out: the module
# reads them by value, whatever their strides, order or dtype object, and gives back native,
# C-ordered arrays of its own.
import pickle

import numpy as np
import pytest

import korvane

LAYOUTS = {
    "C order": lambda values: values,
    "Fortran order": np.asfortranarray,
    "reversed and strided": lambda values: values[..., ::-1, ::2],
    "broadcast": lambda values: np.broadcast_to(values[..., :1], values.shape),  # stride 0, read-only
    "big-endian": lambda values: values.astype(values.dtype.newbyteorder(">")),
    "unpickled": lambda values: pickle.loads(pickle.dumps(values)),  # a dtype equal to NumPy's, not the same
}


def owned_native_c_array(array, dtype):
    return (array.dtype == dtype and array.dtype.isnative and array.flags.c_contiguous and array.flags.owndata
            and array.flags.writeable)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int32, np.float32])
def test_images_of_every_layout_come_back_equal(suite, dtype):
    volume = (np.arange(4 * 6 * 10).reshape(4, 6, 10) * 37 % 251).astype(dtype)
    for layout, arrange in LAYOUTS.items():
        for given in (arrange(volume), arrange(volume[1])):
            assert korvane.putImage(layout, given), layout
            image = korvane.getImage(layout)
            assert owned_native_c_array(image, dtype), layout
            np.testing.assert_array_equal(image, given, layout)
            assert korvane.removeImage(layout)


@pytest.mark.parametrize("dtype", [np.int8, np.uint8, np.int16, np.uint16, np.int32, np.uint32, np.int64, np.uint64,
                                   np.float16, np.float32, np.float64])
def test_values_of_every_dtype_and_layout_are_read_by_value(suite, dtype):
    ramp = (np.arange(24).reshape(2, 12) * 5).astype(dtype)
    for layout, arrange in LAYOUTS.items():
        given = arrange(ramp)[1]  # one-dimensional, and strided in every layout
        assert korvane.createSieve("sieve", given) and korvane.setMsrParams("FeretMax", given), layout
        for values in (korvane.getSieveParams("sieve"), korvane.getMsrParams("FeretMax")):
            assert owned_native_c_array(values, np.float32) and values.tolist() == given.tolist(), layout
        korvane.removeSieve("sieve")
        if np.dtype(dtype).kind in "iu":
            assert korvane.createLut("lut", given) and korvane.createMorphoLut("morpho", given, 0, 0), layout
            for values in (korvane.getLutValues("lut"), korvane.getMorphoLutDataPtr("morpho")):
                assert owned_native_c_array(values, np.int32) and values.tolist() == given.tolist(), layout
            korvane.removeLut("lut")
            assert korvane.removeMorphoLut("morpho")
