# Every family of functions with its Python types, and the checks made before the suite is called.
import sys

import numpy as np
import pytest

import korvane
from conftest import source_line


def test_lookup_tables_take_integer_array_likes_and_give_int32_arrays(suite):
    assert korvane.createLut("ramp", range(5))
    assert korvane.createLut("wide", np.array([-2**31, 2**31 - 1], dtype=np.int64))
    values = korvane.getLutValues("ramp")
    assert values.dtype == np.int32 and values.tolist() == [0, 1, 2, 3, 4]
    assert korvane.getLutValues("wide").tolist() == [-2**31, 2**31 - 1]
    assert korvane.getLutValues("none").size == 0
    assert korvane.createMorphoLut("morpho", np.arange(4, dtype=np.uint8)[::2], 3, -1)
    assert korvane.getMorphoLutDataPtr("morpho").tolist() == [0, 2]
    assert korvane.getMorphoLutFlags("morpho") == (3, -1)
    assert korvane.setMorphoLutFlags("morpho", 5, 6) and korvane.getMorphoLutFlags("morpho") == (5, 6)
    assert korvane.getMorphoLutFlags("none") is None and korvane.getMorphoLutDataPtr("none") is None
    assert korvane.getLutList() == ["ramp", "wide"] and korvane.getMorphoLutList() == ["morpho"]
    assert korvane.removeMorphoLut("morpho")
    korvane.removeLut("ramp")
    assert korvane.getLutList() == ["wide"] and korvane.getMorphoLutList() == []


@pytest.mark.parametrize("values, error", [
    ([1.5], TypeError), (["1"], TypeError), ([True], TypeError), ([[1, 2]], ValueError), (5, ValueError),
    ([2**31], ValueError), ([-2**31 - 1], ValueError), (np.array([2**63], dtype=np.uint64), ValueError)])
def test_wrong_integers_are_refused_before_the_suite(suite, values, error):
    with pytest.raises(error):
        korvane.createLut("bad", values)
    with pytest.raises(error):
        korvane.createMorphoLut("bad", values, 0, 0)
    assert korvane.getLutList() == [] and korvane.getMorphoLutList() == []


def test_sieves_and_measure_parameters_take_real_array_likes(suite):
    assert korvane.createSieve("steps", [0.5, 2, np.inf])
    assert korvane.createSieve("empty", [])
    steps = korvane.getSieveParams("steps")
    assert steps.dtype == np.float32 and steps.tolist() == [0.5, 2.0, np.inf]
    assert korvane.getSieveList() == ["steps", "empty"]
    for values, error in (([1j], TypeError), (["a"], TypeError), ([[1.0]], ValueError), ([1e39], ValueError)):
        with pytest.raises(error):
            korvane.createSieve("bad", values)
        with pytest.raises(error):
            korvane.setMsrParams("FeretMax", values)
    assert "bad" not in korvane.getSieveList()
    korvane.removeSieve("steps")
    assert korvane.getSieveList() == ["empty"]

    assert korvane.setMsrParams("FeretMax", np.array([0, 45, 90], dtype=np.int16))
    params = korvane.getMsrParams("FeretMax")
    assert params.dtype == np.float32 and params.tolist() == [0, 45, 90]


def test_measures_are_described_by_records(suite):
    native = korvane.getNatMsrList()
    assert "Area" in native
    info = korvane.getMsrInfo("Area")
    assert isinstance(info, korvane.MeasureInfo) and info._fields == (
        "name", "isUser", "unitDim", "dimension", "nbParams", "description")
    assert (info.name, info.isUser, info.unitDim, info.dimension) == ("Area", False, 2, 2)
    assert korvane.getMsrInfo("none") is None

    assert korvane.createUsrMsrByFormula("double", "Area*2", 7)
    assert korvane.getMsrInfo("double")[:5] == ("double", True, -2, 0, 0)
    assert korvane.getUsrMsrFormula("double") == "Area*2" and korvane.getUsrMsrList() == ["double"]
    for unit in (-1, 8):
        with pytest.raises(ValueError, match="unitDim"):
            korvane.createUsrMsrByFormula("refused", "Area", unit)
    korvane.removeAllUsrMsr()
    assert korvane.getUsrMsrList() == []


def test_feret_directions_are_an_array_and_errors_name_their_line(suite):
    angles = korvane.getUniformFeret3dAngles(6)
    assert angles.dtype == np.float32 and angles.shape == (2, 6)
    assert ((angles[0] >= 0) & (angles[0] <= 90)).all()
    assert korvane.setFeret3dMsrParams(6)
    assert korvane.getMsrParams("Length3d").size == 12
    message = "Number of angles for Feret3d measures must be strictly positive"
    with pytest.raises(korvane.Error, match=message) as raised:
        korvane.getUniformFeret3dAngles(0)
    assert type(raised.value) is korvane.Error
    assert raised.value.file.endswith("src/MeasureInterface.cpp")
    assert raised.value.line == source_line("src/MeasureInterface.cpp", message)


def test_commands_filters_groups_and_segments(suite):
    names = korvane.getCmdNameColl()
    info = korvane.getCmdInfo(names[0])
    assert isinstance(info, korvane.CmdInfo) and info.name == names[0]
    assert all(isinstance(param, korvane.CmdParam) for param in info.params)
    assert "output" in [param.name for param in info.params]
    assert korvane.getCmdInfo("none") is None

    assert korvane.createFilter("brighter", "I1+1") and korvane.getFilterFormula("brighter") == "I1+1"
    assert not korvane.createFilter("broken", "I1+")
    assert korvane.isValidImageFormula("I1*2") and not korvane.isValidImageFormula("I1*")
    assert korvane.getFilterList() == ["brighter"]
    korvane.removeAllFilters()
    assert korvane.getFilterList() == []

    korvane.addMsrGrp("shape")
    assert korvane.addMsrToMsrGrp("shape", "Area") and not korvane.addMsrToMsrGrp("shape", "none")
    assert korvane.getMsrGrpList() == ["shape"] and korvane.getMsrGrpMsrList("shape") == ["Area"]
    korvane.removeMsrFromMsrGrp("shape", "Area")
    assert korvane.getMsrGrpMsrList("shape") == []
    korvane.removeAllMsrGrp()
    assert korvane.getMsrGrpList() == []

    assert korvane.createSegment("edges") and korvane.getNbChain("edges") == 0
    assert korvane.getNbChain("none") == -1 and korvane.getSegment("edges", 0, 0) is None
    assert korvane.getSegmentList() == ["edges"]
    assert korvane.removeSegment("edges") and not korvane.removeSegment("edges")

    korvane.setExtraMemUsage(-1)
    assert korvane.getExtraMemUsage() == -1


def test_calls_keep_no_references(suite):
    values, name = np.arange(10), "counted"
    callback = lambda: True  # noqa: E731
    before = sys.getrefcount(values), sys.getrefcount(name), sys.getrefcount(callback)
    for _ in range(1000):
        korvane.createLut(name, values)
        korvane.getLutValues(name)
        korvane.removeLut(name)
        korvane.setFlushEventsCB(callback)
    korvane.setFlushEventsCB(None)
    assert (sys.getrefcount(values), sys.getrefcount(name), sys.getrefcount(callback)) == before
