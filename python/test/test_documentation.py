"""The package's examples and types."""

import doctest
import importlib
import inspect
import os
import pathlib
import re
import subprocess
import sys

import numpy as np
import pytest

import quen_shs

HERE = pathlib.Path(__file__).parent
MODULES = ["", "._core", ".calibration", ".campaigns", ".detector", ".engines", ".loop", ".pictures", ".scores", ".simulator",
           ".stream"]


@pytest.mark.parametrize("module", MODULES)
def test_examples_of_docstrings_run(module, sensor, tmp_path, monkeypatch):
    (tmp_path / "sensor").symlink_to(sensor)
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("MILK_SHM_DIR", str(tmp_path))
    names = {}
    exec("import numpy as np\nfrom quen_shs import *", names)
    results = doctest.testmod(importlib.import_module("quen_shs" + module), extraglobs=names)
    assert results.attempted > 0
    assert results.failed == 0


@pytest.mark.parametrize("name", quen_shs.__all__)
def test_every_public_name_has_a_docstring_with_an_example(name):
    assert ">>>" in getattr(quen_shs, name).__doc__


def public_members():
    for name in quen_shs.__all__:
        thing = getattr(quen_shs, name)
        for member in vars(thing) if inspect.isclass(thing) else ():
            if not member.startswith("_"):
                yield name, member


@pytest.mark.parametrize("name, member", public_members())
def test_every_method_has_an_example_and_every_property_a_docstring(name, member):
    told = inspect.getattr_static(getattr(quen_shs, name), member)
    if callable(told) or isinstance(told, (classmethod, staticmethod)):
        assert ">>>" in inspect.getdoc(getattr(getattr(quen_shs, name), member))
    elif isinstance(told, property):
        assert told.__doc__


def arrays_of(thing):
    """Of a result or a simulator, with what its help says of them."""
    for name in dir(thing):
        array = getattr(thing, name)
        if isinstance(array, np.ndarray):
            yield name, array


def test_help_of_properties_tells_type_and_shape(sim):
    names = [name for name, _ in arrays_of(sim)]
    assert {"frame", "slopes", "m2s", "cm", "rois", "rois_used"} <= set(names)
    for name, array in arrays_of(sim):
        kind = "structured array" if array.dtype.names else str(array.dtype)
        told = " ".join(getattr(quen_shs.Simulator, name).__doc__.split())
        assert re.search(rf"\b{kind}, shape {re.escape(str(array.shape))}", told), name
        assert re.search(r"pixel|radian|light|bool", told, re.IGNORECASE), name


def test_help_of_results_tells_types_and_shapes(sim):
    curves = quen_shs.error_curves(sim, [quen_shs.Weighted()], frames=1)
    for name, array in arrays_of(curves):
        assert re.search(rf"{name} : ndarray of {array.dtype}, shape {re.escape(str(array.shape))}", curves.__doc__)
    run = quen_shs.run_loop(sim, frames=10)
    assert {name for name, _ in arrays_of(run)} == {"disturbance", "correction", "residual"}
    assert "disturbance, correction, residual : ndarray of float64, shape (frames, 52)" in run.__doc__


def run(*command):
    environment = {**os.environ, "MYPY_CACHE_DIR": os.devnull}
    result = subprocess.run(command, env=environment, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert result.returncode == 0, result.stdout


def test_types_are_those_of_the_module(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    run(sys.executable, "-m", "mypy.stubtest", "--allowlist", str(HERE / "stubtest_allowlist.txt"), "quen_shs")


def test_types_fit_together(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    run(sys.executable, "-m", "mypy", "--strict", "-p", "quen_shs")


def test_readme_is_true(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    text = (HERE.parents[1] / "README.md").read_text()
    program, printed = re.search(r"^```python\n(.*?)^```\n\n^```text\n(.*?)^```$", text, re.MULTILINE | re.DOTALL).groups()
    result = subprocess.run([sys.executable, "-c", program], text=True, stdout=subprocess.PIPE, check=True)
    assert result.stdout == printed
