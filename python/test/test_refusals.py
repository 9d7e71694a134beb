"""Every refusal of the compiled half, each once, and no one forgotten."""

import pathlib
import re
import shutil

import numpy as np
import pytest
from astropy.io import fits

import quen_shs
from quen_shs import (
    CentreOfGravity,
    Detector,
    LightEngine,
    MaximumLikelihoodFit,
    Picture,
    ReadyMade,
    Roi,
    Simulator,
    Stream,
    Weighted,
    _core,
    calibrate,
    check,
    error_curves,
    run_loop,
    score,
)

ZEROS = np.zeros(1089)
FRAME = np.zeros((816, 840), np.uint16)
MODES = np.zeros((12, 52))
ROI = Roi(0, 20, 0, 20, 20, 20, 10.0, 10.0)
SOURCES = pathlib.Path(__file__).parents[1] / "src"


def read_only(array):
    array.flags.writeable = False
    return array


def broken(sensor, folder):
    """What check finds where there is one file, and a damaged one."""
    (folder / "data").mkdir()
    (folder / "data" / "M2S.fits").write_bytes((sensor / "data" / "M2S.fits").read_bytes())
    (folder / "data" / "CM.fits").write_text("no matrix")
    return folder


class Answers:
    def __init__(self, answer):
        self.answer = answer

    def compute(self, frame, roi):
        return self.answer


def plan_of(sensor):
    text = f'{{"verb": "score", "calibration": "{sensor}", "frames": 1, "engine": "weighted"}}'
    return "plan", text, "/"


def closed():
    with Stream.create("refused", 3, "int8"):
        stream = Stream("refused")
        stream.close()
        stream.wait(0.0)


def waited(timeout):
    with Stream.create("refused", 3, "int8"), Stream("refused") as stream:
        stream.wait(timeout)


# What is refused: the exception, its whole text but for "...", and a call, which has a simulator, a folder with a
# calibration and one for files.
REFUSALS = [
    (ValueError, "dx: expected shape (1089,), found (5,)", lambda s, c, f: s.compute_frame(ZEROS[:5], ZEROS)),
    (ValueError, "frame: expected shape (816, 840), found (840, 816); give its transpose, .T",
     lambda s, c, f: s.compute_slopes(CentreOfGravity(), frame=FRAME.T)),
    (ValueError, "dx: expected an array, found none: ...", lambda s, c, f: s.compute_frame([[0.0], [0.0, 1.0]], ZEROS)),
    (ValueError, "dx: expected an array without a mask, found one with masked elements",
     lambda s, c, f: s.compute_frame(np.ma.masked_all(1089), ZEROS)),
    (TypeError, "dx: expected numbers that float64 holds without loss, found complex128",
     lambda s, c, f: s.compute_frame(ZEROS * 1j, ZEROS)),
    (TypeError, "out: expected an array of uint16, found an array of float64",
     lambda s, c, f: s.compute_frame(ZEROS, ZEROS, out=np.zeros((816, 840)))),
    (ValueError, "out: expected an array that can be written to",
     lambda s, c, f: s.compute_frame(ZEROS, ZEROS, out=read_only(FRAME.copy()))),
    (ValueError, "out: expected an array in C order, row by row without gaps",
     lambda s, c, f: s.compute_slopes(CentreOfGravity(), out=np.zeros(2428)[::2])),
    (ValueError, "out: expected none where copy is False",
     lambda s, c, f: s.compute_frame(ZEROS, ZEROS, out=FRAME.copy(), copy=False)),
    (ValueError, "noise: expected 0 or more, found -1.0", lambda s, c, f: s.compute_frame(ZEROS, ZEROS, -1)),
    (ValueError, "thresholding: expected one of 'subtract', 'cut', found 'none'",
     lambda s, c, f: CentreOfGravity(thresholding="none")),
    (TypeError, "roi: expected a Roi, found 5", lambda s, c, f: Weighted().compute(FRAME, 5)),
    (ValueError, "frame: expected one of 816 rows and 840 columns, as the engine's maps have, found another",
     lambda s, c, f: MaximumLikelihoodFit(flat_map=np.ones((816, 840))).compute(FRAME[:20, :20], ROI)),
    (ValueError, "x_low: expected 0 to 65535, found -1", lambda s, c, f: Roi(-1, 20, 0, 20, 20, 20, 10.0, 10.0)),
    (TypeError, "y_max: expected a whole number, found 1.5", lambda s, c, f: Roi(0, 20, 0, 20, 20, 1.5, 10.0, 10.0)),
    (TypeError, "x_ref: expected a number, found None", lambda s, c, f: Roi(0, 20, 0, 20, 20, 20, None, 10.0)),
    (TypeError, "Can't instantiate abstract class ReadyMade...", lambda s, c, f: ReadyMade()),
    (ValueError, "thresholding: expected a word in UTF-8, found '\\ud800'",
     lambda s, c, f: CentreOfGravity(thresholding="\ud800")),
    (TypeError, "content: expected bytes, found 3", lambda s, c, f: Picture(3)),
    (ValueError, "content: expected the bytes of a PNG file, found others", lambda s, c, f: Picture(b"3")),
    (TypeError, "keywords: expected a mapping of names to values, found 7",
     lambda s, c, f: Stream.create("refused", 3, "int8", keywords=7)),
    (TypeError, "keywords: expected a word, found 7",
     lambda s, c, f: Stream.create("refused", 3, "int8", keywords={7: 1})),
    (ValueError, "timeout: expected seconds, found nan", lambda s, c, f: waited(np.nan)),
    (TypeError, "timeout: expected a number, found '1'", lambda s, c, f: waited("1")),
    (TypeError, "compute: expected (flux, x, y), found 3", lambda s, c, f: s.compute_slopes(Answers(3))),
    (TypeError, "compute: expected (flux, x, y), found (1.0, 'x', 0.0)",
     lambda s, c, f: s.compute_slopes(Answers((1.0, "x", 0.0)))),
    (TypeError, "engine: expected an object with a method compute(frame, roi), found the class Weighted; write Weighted()",
     lambda s, c, f: s.compute_slopes(Weighted)),
    (TypeError, "engine: expected an object with a method compute(frame, roi), found 5",
     lambda s, c, f: s.compute_slopes(5)),
    (ValueError, "engine: expected one without maps, for it sees single regions; give the maps to the LightEngine",
     lambda s, c, f: LightEngine(engine=MaximumLikelihoodFit(flat_map=np.ones((816, 840))))._engine),
    (RuntimeError, "Simulator: is in use by another call; give each thread one of its own",
     lambda s, c, f: s.compute_slopes(type("Calls", (), {"compute": lambda self, *_: s.seed(1)})())),
    (TypeError, "cannot pickle <class 'quen_shs._core.Simulator'>", lambda s, c, f: s._core.__reduce__()),
    (FileNotFoundError, "no calibration in ...", lambda s, c, f: Simulator(f)),
    (OSError, "...M2S.fits...", lambda s, c, f: Simulator(with_a_folder(c, f))),
    (ValueError, "...M2S.fits...", lambda s, c, f: Simulator(damaged(c, f))),
    (FileNotFoundError, "data/M2S.fits is neither along CFGPATH nor below the current folder, and INTROOT is not set; "
     "give the folder of a calibration, as calibrate makes one", lambda s, c, f: Simulator()),
    (ValueError, "...has 606 usage flags, 606 of them set; expected 1089 and 607...",
     lambda s, c, f: flawed(c, f).compute_slopes(CentreOfGravity())),
    (ValueError, "...has 606 usage flags, 606 of them set; expected 1089 and 607...",
     lambda s, c, f: run_loop(flawed(c, f), MODES)),
    (ValueError, "...has 606 usage flags, 606 of them set; expected 1089 and 607...",
     lambda s, c, f: score(flawed(c, f), [CentreOfGravity()])),
    (ValueError, "Stream: is closed", lambda s, c, f: closed()),
    (FileNotFoundError, "there is no stream ...nowhere.im.shm", lambda s, c, f: Stream("nowhere")),
    (ValueError, "...", lambda s, c, f: Stream("a/b")),
    (ValueError, "dtype: expected whole numbers of 8 to 64 bits, floats of 16 to 64 or complex ones of 64 or 128, found "
     "float128", lambda s, c, f: Stream.create("refused", 3, np.longdouble)),
    (ValueError, "disturbance: expected a frame or more, found none", lambda s, c, f: run_loop(s, MODES[:0])),
    (ValueError, "disturbance: expected 20 frames at least, found 12; give frames=12",
     lambda s, c, f: run_loop(s, MODES, frames=20)),
    (ValueError, "disturbance: expected finite numbers, found others", lambda s, c, f: run_loop(s, MODES + np.inf)),
    (FileExistsError, "...M2S.fits: is there already; give force=True to replace the calibration",
     lambda s, c, f: calibrate(c)),
    (ValueError, "basis: expected 'zernike' or 'karhunen-loeve', found 'fourier'",
     lambda s, c, f: calibrate(f, basis="fourier")),
    (ValueError, "no picture: the library does not load the calibration",
     lambda s, c, f: check(broken(c, f)).picture()),
    (ValueError, "disturbance: expected a frame or more, found none",
     lambda s, c, f: _core.loop_picture(MODES[:0], MODES[:0])),
    (ValueError, "scores: expected one of each engine at each place, found others",
     lambda s, c, f: _core.error_picture(False, 1.0, [1.0], [0.1], ["a", "b"], [[(0.1, 0.1)]])),
    (FileNotFoundError, "file: expected a name, found none", lambda s, c, f: s.picture().save("")),
    (OSError, "cannot write ...: it names a folder; give the name of a file", lambda s, c, f: s.picture().save(f)),
    (ValueError, "runs: expected some of the campaign's",
     lambda s, c, f: _core.CampaignRunner(plan_of(c)).run(0, 2)),
    (ValueError, "map: expected results of this campaign, found others",
     lambda s, c, f: _core.CampaignResults(plan_of(c), str(f), False).take([(5, [], "")])),
    (ValueError, "plan: verb: expected one of loop, score, found view",
     lambda s, c, f: quen_shs.campaign({"verb": "view"})),
]


def damaged(sensor, folder):
    (folder / "data").mkdir()
    for file in (sensor / "data").iterdir():
        (folder / "data" / file.name).write_bytes(file.read_bytes()[:5000])
    return folder


def with_a_folder(sensor, folder):
    """A calibration with a folder in place of a file."""
    shutil.copytree(sensor / "data", folder / "data")
    (folder / "data" / "M2S.fits").unlink()
    (folder / "data" / "M2S.fits").mkdir()
    return folder


def flawed(sensor, folder):
    """A calibration with too few usage flags."""
    shutil.copytree(sensor / "data", folder / "data")
    name = folder / "data" / "shs_rois.fits"
    with fits.open(name) as hdus:
        copied = fits.HDUList([hdu.copy() for hdu in hdus])
    copied["rois_used"] = fits.BinTableHDU(np.ones(606, [("is_used", np.uint8)]), name="rois_used")
    copied.writeto(name, overwrite=True)
    return Simulator(folder)


def pattern(text):
    return ".*".join(re.escape(part) for part in text.split("...")) + "$"


@pytest.mark.parametrize("kind, text, call", REFUSALS, ids=[text[:40] for _, text, _ in REFUSALS])
def test_it_is_refused(kind, text, call, sim, sensor, tmp_path, monkeypatch):
    monkeypatch.setenv("MILK_SHM_DIR", str(tmp_path))
    monkeypatch.chdir(tmp_path)
    for variable in ("CFGPATH", "INTROOT"):
        monkeypatch.delenv(variable, raising=False)
    folder = tmp_path / "folder"
    folder.mkdir()
    with pytest.raises(kind) as info:
        call(sim, sensor, folder)
    assert type(info.value) is kind
    assert re.match(pattern(text), str(info.value), re.DOTALL), str(info.value)
    assert sim.compute_frame(ZEROS, ZEROS).max() == 3847


def words_of_the_sources():
    """The longest text in each statement that throws something with words of its own."""
    for source in sorted(SOURCES.glob("*.?pp")):
        code = re.sub(r"//[^\n]*", "", source.read_text(encoding="utf-8"))
        for statement in re.findall(r"(?:throw (?:py|std)::\w+_error|ThrowOsError)\(([^;]*);", code):
            texts = re.findall(r'"((?:[^"\\]|\\.)*)"', re.sub(r'"\s+"', "", statement))
            if texts:
                yield source.name, max(texts, key=len)


def test_none_is_forgotten():
    known = [text for _, text, _ in REFUSALS]
    found = list(words_of_the_sources())
    assert len(found) > 25
    forgotten = [(name, text) for name, text in found if not any(text.strip() in one for one in known)]
    assert not forgotten
