"""What all tests share. They run on the package that PYTHONPATH names."""

import pathlib

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
