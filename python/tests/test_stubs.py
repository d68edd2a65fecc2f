# The type stubs name every public function of the module with the module's own parameters.
import ast
import pathlib
import re

import korvane

STUBS = ast.parse((pathlib.Path(__file__).parents[1] / "korvane.pyi").read_text())


def test_stubs_follow_the_module():
    stubbed = {node.name: node for node in STUBS.body if isinstance(node, (ast.FunctionDef, ast.ClassDef))}
    public = {name for name in dir(korvane) if not name.startswith("_")}
    assert set(stubbed) == public
    for name, node in stubbed.items():
        if isinstance(node, ast.ClassDef):
            continue
        signature = re.match(rf"{name}\((.*)\) ->", getattr(korvane, name).__doc__).group(1)
        module_params = [part.split(":")[0].strip(" *") for part in signature.split(", ") if part]
        stub_params = [arg.arg for arg in node.args.args] + ([node.args.kwarg.arg] if node.args.kwarg else [])
        assert stub_params == [param if param != "kwargs" else "parameters" for param in module_params], name


def test_docstrings_carry_the_reference_text():
    assert "Logs at Debug \"Creating lut <name> with <count> values\"" in korvane.createLut.__doc__
    assert korvane.createLut.__doc__.startswith("createLut(name: str, values: object) -> bool\n\nCreates")
