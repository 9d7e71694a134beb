"""What all tests share. They run on the package that PYTHONPATH names, against the tool that QUEN_SHS names."""

import os
import pathlib
import subprocess
import sys
from typing import Any, Callable

import numpy as np
import pytest

import quen_shs


@pytest.fixture(scope="session")
def sensor(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """A folder with a calibration."""
    folder = tmp_path_factory.mktemp("calibrated") / "sensor"
    quen_shs.calibrate(folder)
    return folder


@pytest.fixture
def sim(sensor: pathlib.Path) -> quen_shs.Simulator:
    return quen_shs.Simulator(sensor, seed=1)


@pytest.fixture(scope="session")
def tool() -> Callable[..., str]:
    """Runs quen-shs, and gives what it prints."""

    def run(*arguments: Any, rc: int = 0) -> str:
        command = [os.environ["QUEN_SHS"], *map(str, arguments)]
        result = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        assert result.returncode == rc, result.stderr
        return result.stdout

    return run


@pytest.fixture(scope="session")
def child() -> Callable[..., subprocess.CompletedProcess[str]]:
    """Runs a script in a Python of its own."""

    def run(script: str, *arguments: Any, environment: dict[str, str] | None = None, **options: Any) -> Any:
        return subprocess.run(
            [sys.executable, "-c", script, *map(str, arguments)],
            env={**os.environ, **(environment or {})},
            text=True,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            timeout=60,
            **options,
        )

    return run


@pytest.fixture(scope="session")
def displacements() -> np.ndarray:
    """Of all spots: those along the columns, and those along the rows."""
    return np.random.default_rng(1).uniform(-2, 2, (2, 1089))


@pytest.fixture(scope="session")
def displacement_file(displacements: np.ndarray, tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """The same for the tool, to the last bit."""
    file = tmp_path_factory.mktemp("displaced") / "displacements.csv"
    file.write_text("".join(f"{dx!r},{dy!r}\n" for dx, dy in displacements.T.tolist()))
    return file
