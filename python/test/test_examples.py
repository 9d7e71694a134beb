"""The scripts of examples/python, each run in an empty folder."""

import os
import pathlib
import re
import subprocess
import sys

import matplotlib.image
import numpy as np
import pytest
from astropy.io import fits

FOLDER = pathlib.Path(__file__).parents[2] / "examples" / "python"
# matplotlib and astropy of this age bring no types. All else is checked, the package included.
UNTYPED = "".join(f"[mypy-{package}.*]\nignore_missing_imports = True\n" for package in ("matplotlib", "astropy"))


def output_of(folder, *command):
    environment = {**os.environ, "MPLBACKEND": "Agg", "MYPY_CACHE_DIR": os.devnull}
    result = subprocess.run(command, cwd=folder, env=environment, text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    assert result.returncode == 0, result.stdout
    return result.stdout


def numbers_of(folder, script):
    """The numbers that a script prints, those that end a word left out: line by line."""
    lines = output_of(folder, sys.executable, FOLDER / script).splitlines()
    return [[float(number) for number in re.findall(r"(?<!\w)[+-]?\d[\d.e+-]*", line)] for line in lines]


def require_picture(name):
    picture = matplotlib.image.imread(name)
    assert min(picture.shape[:2]) >= 500
    assert picture[..., :3].std() > 0.1  # not all of one colour


def test_closed_loop_is_that_of_run_loop(tmp_path):
    [own, *_], [ready_made, *_], [difference] = numbers_of(tmp_path, "closed_loop.py")
    assert own == ready_made
    assert 0.3 < own < 0.6
    assert difference < 1e-12  # rounding of products of 1214 numbers, of modes of some 10 radians
    require_picture(tmp_path / "closed_loop.png")


def test_own_engine_is_between_the_bound_and_the_centre_of_gravity(tmp_path):
    [noise], [bound], [centre_of_gravity], _, _, [own] = numbers_of(tmp_path, "own_engine.py")
    assert noise == 10
    assert bound <= own < centre_of_gravity
    require_picture(tmp_path / "own_engine.png")


def test_camera_frames_are_read_by_the_tool(tmp_path):
    [median, highest], [x, y, *true] = numbers_of(tmp_path, "camera_frames.py")
    assert median == pytest.approx(101, abs=0.5)  # the pedestal, and two electrons of background
    assert highest > 1000  # a hot pixel
    assert true == [0.5, -0.25]
    assert [x, y] == pytest.approx(true, abs=0.005)
    require_picture(tmp_path / "camera.png")

    assert fits.getheader(tmp_path / "camera.fits")["BZERO"] == 32768
    cube = fits.getdata(tmp_path / "camera.fits")
    assert cube.dtype == np.uint16
    assert cube.shape == (5, 816, 840)
    assert np.median(cube) == median

    told = (FOLDER / "camera_frames.py").read_text()
    [command] = re.findall(r"^    quen-shs (.*?[^\\])$", told, re.MULTILINE | re.DOTALL)
    command = command.replace("\\\n", "").split()
    output_of(tmp_path, os.environ["QUEN_SHS"], *command, "--output", "slopes.fits")
    with fits.open(tmp_path / "slopes.fits") as file:
        used = file["rois_use"].data["is_used"] != 0
        measured = [[table.data[axis][used].mean() for axis in "xy"] for table in file if table.name == "slopes"]
    assert measured == [pytest.approx(true, abs=0.005)] * 5


@pytest.mark.parametrize("script", sorted(path.name for path in FOLDER.glob("*.py")))
def test_types_fit_together(script, tmp_path):
    (tmp_path / "mypy.ini").write_text("[mypy]\n" + UNTYPED)
    output_of(tmp_path, sys.executable, "-m", "mypy", "--strict", FOLDER / script)
