# Memory stays flat over thousands of calls of each kind: arrays and images in and out, measuring,
# exceptions raised. Python's objects (NumPy's buffers included) are counted by tracemalloc, the
# C++ heap by malloc's own count. Not under AddressSanitizer: its allocator keeps no such count,
# and with Python allocating through it (PYTHONMALLOC=malloc) tracemalloc keeps traces of blocks
# whose address is not reused yet.
import ctypes
import gc
import tracemalloc

import numpy as np
import pytest

import korvane

CALLS = 2000
pytestmark = pytest.mark.skipif("libasan" in open("/proc/self/maps").read(), reason="counted in the other builds")


class MallInfo2(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in (
        "arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks", "fordblks", "keepcost")]


LIBC = ctypes.CDLL(None)
LIBC.mallinfo2.restype = MallInfo2


def heap_bytes():
    """The bytes malloc has handed out and not taken back: C++'s new and NumPy's buffers."""
    info = LIBC.mallinfo2()
    return info.uordblks + info.hblkhd


def growth(measure, calls):
    """The least that `measure` grows by over CALLS calls, in each of two rounds, each reading after
    a full collection, which also empties the interpreter's free lists (a tuple parked there still
    counts). A leak grows both rounds by the same; a table of the interpreter's that doubles its
    size, or a cache that fills, grows one."""
    rounds = []
    for _ in range(2):
        gc.collect()
        before = measure()
        for _ in range(CALLS):
            calls()
        gc.collect()
        rounds.append(measure() - before)
    return min(rounds)


def traced_bytes():
    return tracemalloc.get_traced_memory()[0]


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
    # The C++ heap first: tracemalloc's own tables live on it. A block kept per call, 16 bytes at the
    # least, grows either by 16 * CALLS; what stays below 8 * CALLS is not kept per call.
    assert growth(heap_bytes, calls) < 8 * CALLS
    tracemalloc.start()
    try:
        assert growth(traced_bytes, calls) < 8 * CALLS
    finally:
        tracemalloc.stop()
