"""The package's examples and types."""

import doctest
import importlib
import os
import pathlib
import re
import subprocess
import sys

import pytest

import quen_shs

HERE = pathlib.Path(__file__).parent
MODULES = ["", ".calibration", ".campaigns", ".detector", ".engines", ".loop", ".pictures", ".scores", ".simulator",
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


def test_every_public_name_has_a_docstring_with_an_example_or_attributes():
    for name in quen_shs.__all__:
        if name in ("Roi", "ReadyMade"):
            continue
        text = getattr(quen_shs, name).__doc__
        assert text and (">>>" in text or "Attributes" in text), name


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
