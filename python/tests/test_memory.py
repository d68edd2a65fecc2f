# Memory stays flat over thousands of calls of each kind: arrays and images in and out, measuring,
# exceptions raised. Python's objects (NumPy's buffers included) are counted by tracemalloc, the
# C++ heap by malloc's own count, which AddressSanitizer's allocator does not keep.
import ctypes
import tracemalloc

import numpy as np
import pytest

import korvane

CALLS = 2000
UNDER_ASAN = "libasan" in open("/proc/self/maps").read()


class MallInfo2(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in (
        "arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks", "fordblks", "keepcost")]


LIBC = ctypes.CDLL(None)
LIBC.mallinfo2.restype = MallInfo2


def heap_bytes():
    """The bytes malloc has handed out and not taken back: C++'s new and NumPy's buffers."""
    info = LIBC.mallinfo2()
    return info.uordblks + info.hblkhd


def arrays():
    korvane.createLut("lut", np.arange(256))
    korvane.getLutValues("lut")
    korvane.removeLut("lut")
    korvane.createSieve("sieve", np.linspace(0, 1, 100))
    korvane.getSieveParams("sieve")
    korvane.removeSieve("sieve")
    korvane.getUniformFeret3dAngles(50)


VOLUME = (np.arange(16 * 64 * 64).reshape(16, 64, 64) % 251).astype(np.uint8)


def images():
    korvane.putImage("volume", VOLUME)
    korvane.getImage("volume")
    korvane.removeImage("volume")


def measure():
    korvane.measure("labels", "shape", grey="grey")


def errors():
    for call, error in ((lambda: korvane.getUniformFeret3dAngles(0), korvane.Error),
                        (lambda: korvane.runCommand("Threshold", input="none", output="o"), korvane.SuiteError),
                        (lambda: korvane.measure("none", "shape"), korvane.Error),
                        (lambda: korvane.putImage("wrong", np.zeros((2, 2), np.int64)), TypeError),
                        (lambda: korvane.createLut("wrong", [1.5]), TypeError)):
        with pytest.raises(error):
            call()


@pytest.mark.parametrize("calls", [arrays, images, measure, errors])
def test_memory_stays_flat_over_many_calls(suite, calls):
    labels = np.zeros((64, 64), np.int32)
    labels[5:20, 5:20], labels[30:50, 10:60] = 1, 2
    assert korvane.putImage("labels", labels) and korvane.putImage("grey", labels.astype(np.uint16) * 3)
    korvane.addMsrGrp("shape")
    for name in ("Area", "CentroidX"):
        assert korvane.addMsrToMsrGrp("shape", name)
    for _ in range(CALLS // 10):  # warm-up: caches, free lists and the allocator's arenas fill
        calls()
    tracemalloc.start()
    try:
        traced, heap = tracemalloc.get_traced_memory()[0], heap_bytes()
        for _ in range(CALLS):
            calls()
        traced_growth, heap_growth = tracemalloc.get_traced_memory()[0] - traced, heap_bytes() - heap
    finally:
        tracemalloc.stop()
    assert traced_growth < 4096  # a Python object kept per call grows it by CALLS times its size
    if not UNDER_ASAN:
        assert heap_growth < 16384  # a name or a copy kept per call grows it by CALLS times its size
