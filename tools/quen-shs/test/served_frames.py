#!/usr/bin/env python3
"""A server from outside: a reader and a controller with nothing of ours in them, on mmap and struct alone.

    served_frames.py QUEN_SHS [TEST...]

QUEN_KILLS says how often a server is killed (24).
"""

import contextlib
import json
import mmap
import os
import pathlib
import random
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest

import numpy as np
from astropy.io import fits
from astropy.table import Table

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "stream" / "test"))
import plain_stream  # pylint: disable=wrong-import-position

TOOL = ""
KILLS = int(os.environ.get("QUEN_KILLS", "24"))
LIMIT = 60.0  # seconds, beside what happens at once


def until(condition, process=None):
    """What a condition gives, once it gives something."""
    end = time.monotonic() + LIMIT
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        if process is not None and process.poll() is not None:
            raise AssertionError("the server has ended: " + process.stderr.read())
        time.sleep(0.0005)
    raise AssertionError("nothing has come")


def inode_of(path):
    """None in the moment in which the file is made anew."""
    try:
        return os.stat(path).st_ino
    except FileNotFoundError:
        return None


def rows(log):
    return fits.getheader(log, 1)["NAXIS2"]


class Reader:
    """The stream of frames."""

    def __init__(self, path):
        with open(path, "r+b") as file:
            self.inode = os.fstat(file.fileno()).st_ino
            self.data = mmap.mmap(file.fileno(), 0)
        begin, size = plain_stream.parts(self.data)
        if size != len(self.data):
            raise AssertionError(f"{path}: {len(self.data)} bytes, of {size}")
        self.keyword = begin["keywords"]
        self.type = {3: "<u2", 4: "<i2"}[plain_stream.field(self.data, 136, "B")]

    @classmethod
    def attached(cls, path, process=None):
        def attach():
            try:
                if pathlib.Path(path).read_bytes()[:4] == b"2.00":
                    return cls(path)
            except FileNotFoundError:
                pass
            return None
        return until(attach, process)

    def count(self):
        return plain_stream.field(self.data, 264, "Q")

    def read(self):
        """cnt0, FRAME and pixels of a whole frame."""
        while True:
            count, write = self.count(), self.data[288]
            pixels = np.frombuffer(self.data, self.type, 840 * 816, 384).reshape(816, 840).copy()
            number = plain_stream.field(self.data, self.keyword + 24, "q")
            if not write and not self.data[288] and self.count() == count:
                return count, number, pixels


class Controller:
    """A stream of modes without semaphores: who reads it looks again and again."""

    def __init__(self, path):
        self.path = path
        data = bytearray(384)
        data[32:37] = b"modes"
        struct.pack_into("<B", data, 112, 1)
        struct.pack_into("<3I", data, 116, 52, 0, 0)
        struct.pack_into("<Q", data, 128, 52)
        struct.pack_into("<B", data, 136, 10)
        struct.pack_into("<b", data, 240, -1)
        struct.pack_into("<Q", data, 312, 52 * 8)
        _, size = plain_stream.parts(data)
        data.extend(bytes(size - len(data)))
        with open(path, "w+b") as file:
            file.write(data)
            file.flush()
            self.data = mmap.mmap(file.fileno(), 0)
        self.data[0:4] = b"2.00"

    def write(self, modes):
        self.data[288] = 1
        self.data[384:384 + 52 * 8] = np.asarray(modes, "<f8").tobytes()
        struct.pack_into("<Q", self.data, 264, plain_stream.field(self.data, 264, "Q") + 1)
        self.data[288] = 0


class Sensor:
    """Slopes by the centre of gravity, and what a calibration makes of them."""

    def __init__(self, folder):
        path = folder / "data" / "shs_rois.fits"
        used = np.flatnonzero(np.asarray(Table.read(path, hdu="rois_used")["is_used"]))
        rois = Table.read(path, hdu="rois")[used]
        with fits.open(folder / "data" / "CM.fits") as file:
            self.control = np.array(file[0].data, dtype=float)
        self.regions = list(zip(*(np.asarray(rois[name]).tolist()
                                  for name in ("x_low", "x_up", "x_ref", "y_low", "y_up", "y_ref"))))

    def modes(self, frame):
        x_slopes, y_slopes = [], []
        for x_low, x_up, x_ref, y_low, y_up, y_ref in self.regions:
            light = np.maximum(frame[y_low:y_up + 1, x_low:x_up + 1].astype(float) - 30.0, 0.0)
            total = light.sum()
            x_slopes.append((light.sum(0) @ np.arange(x_low, x_up + 1)) / total - x_ref)
            y_slopes.append((light.sum(1) @ np.arange(y_low, y_up + 1)) / total - y_ref)
        return self.control @ np.concatenate([y_slopes, x_slopes])


class Served(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # pylint: disable=consider-using-with
        cls.temporary = tempfile.TemporaryDirectory()
        cls.folder = pathlib.Path(cls.temporary.name)
        cls.folder.chmod(0o755)
        cls.sensor = cls.folder / "sensor"
        cls.tool("calibrate", str(cls.sensor))

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def setUp(self):
        self.shm = pathlib.Path(tempfile.mkdtemp(dir=self.folder))
        self.stream = self.shm / "wfs.im.shm"
        self.environment = {**os.environ, "MILK_SHM_DIR": str(self.shm)}

    def tearDown(self):
        shutil.rmtree(self.shm)

    @staticmethod
    def tool(*arguments, check=True, **options):
        return subprocess.run([TOOL, *arguments], capture_output=True, text=True, check=check, timeout=LIMIT, **options)

    @contextlib.contextmanager
    def start(self, *arguments):
        """A server; what goes wrong beside it ends it, too, where it would wait for ever otherwise."""
        with subprocess.Popen([TOOL, "serve", str(self.sensor), "--stream", "wfs", *arguments], env=self.environment,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
            try:
                yield process
            except BaseException:
                process.kill()
                raise

    def lockstep(self, frames, answer, *arguments):
        """Serves so many frames; all that were published, as (inode, cnt0, FRAME, pixels)."""
        controller = Controller(self.shm / "modes.im.shm")
        seen = []
        with self.start("--corrections", "modes", "--lockstep", "--frames", str(frames), "--json",
                        *arguments) as process:
            reader = Reader.attached(self.stream, process)
            last = 0
            while process.poll() is None:
                if reader.count() == last:
                    if inode_of(self.stream) not in (None, reader.inode):
                        reader, last = Reader.attached(self.stream), 0
                    time.sleep(0.0001)
                    continue
                last, number, pixels = reader.read()
                seen.append((reader.inode, last, number, pixels))
                controller.write(answer(pixels))
            out, err = process.communicate()
        self.assertEqual((process.returncode, err), (0, ""))
        if reader.count() != last:
            seen.append((reader.inode, *reader.read()))
        return seen, json.loads(out)

    @staticmethod
    def nothing(_):
        return np.zeros(52)

    # --- The same frames as elsewhere

    def test_first_frame(self):
        for options in (["--noise", "25"], ["--photons", "5000", "--pedestal", "100"]):
            expected = self.folder / "frame.fits"
            self.tool("frame", str(self.sensor), "--seed", "9", *options, "--output", str(expected))
            seen, report = self.lockstep(2, self.nothing, "--seed", "9", "--amplitude", "0", *options)
            inode, count, number, pixels = seen[0]
            self.assertGreater(inode, 0)
            self.assertEqual((count, number, len(seen), report["published"]), (1, 0, 2, 2))
            with fits.open(expected) as file:
                data = file[0].data
            self.assertEqual(pixels.dtype, np.dtype("<i2") if options[0] == "--noise" else np.dtype("<u2"))
            np.testing.assert_array_equal(pixels, data.astype(pixels.dtype))

    def test_loop(self):
        folder = self.folder / "loop"
        loop = json.loads(self.tool("loop", str(self.sensor), "--frames", "60", "--seed", "4", "--json", "--engine",
                                    "centre-of-gravity:threshold=30", "--folder", str(folder)).stdout)
        still = json.loads(self.tool("loop", str(self.sensor), "--frames", "10", "--seed", "4", "--json", "--gain",
                                     "0", "--folder", str(self.folder / "still"), check=False).stdout)
        self.assertEqual(still["frames"], 10)
        seen, _ = self.lockstep(10, self.nothing, "--seed", "4")
        with fits.open(self.folder / "still" / "frame.fits") as file:
            np.testing.assert_array_equal(seen[9][3], file[0].data)

        sensor = Sensor(self.sensor)

        def run(log):
            correction, written = np.zeros(52), []

            def answer(frame):
                nonlocal correction
                correction = correction + 0.5 * sensor.modes(frame)
                written.append(correction)
                return correction

            frames, report = self.lockstep(60, answer, "--seed", "4", "--log", str(log))
            self.assertEqual(report["corrections"]["received"], 59)
            table = Table.read(log)
            np.testing.assert_array_equal(table["FRAME"], np.arange(60))
            np.testing.assert_array_equal(table["cnt0"], np.arange(1, 61))
            np.testing.assert_array_equal(table["correction_cnt0"], np.arange(60))
            np.testing.assert_array_equal(table["correction"][0], np.zeros(52))
            np.testing.assert_array_equal(table["correction"][1:], written[:59])
            return frames, table

        frames, table = run(self.folder / "truth.fits")
        again, table_again = run(self.folder / "again.fits")
        for one, other in zip(frames, again):
            np.testing.assert_array_equal(one[3], other[3])
        np.testing.assert_array_equal(table["residual"], table_again["residual"])

        telemetry = Table.read(folder / "telemetry.fits", hdu="telemetry")
        np.testing.assert_array_equal(np.asarray(table["residual"] + table["correction"]).round(9),
                                      np.asarray(telemetry["disturbance"]).round(9))
        residual = np.sqrt(np.mean(np.sum(np.asarray(table["residual"])[30:] ** 2, axis=1)))
        self.assertAlmostEqual(residual / loop["residual_after"], 1.0, delta=0.02)

    # --- Faults

    def test_faults(self):
        script = [{"frame": 1, "kind": "drop"}, {"frame": 2, "kind": "repeat"}, {"frame": 3, "kind": "freeze"},
                  {"frame": 4, "kind": "twice"}, {"frame": 5, "kind": "tear", "rows": 300},
                  {"frame": 6, "kind": "counter", "by": 10}, {"frame": 7, "kind": "dark"},
                  {"frame": 8, "kind": "saturate"}, {"frame": 9, "kind": "shift", "rows": 2, "columns": -1},
                  {"frame": 10, "kind": "bitflip", "x": 5, "y": 7, "bit": 14}, {"frame": 11, "kind": "remake"},
                  {"frame": 12, "kind": "late", "milliseconds": 40}, {"frame": 13, "kind": "remake", "goes_on": 1},
                  {"frame": 14, "kind": "cosmic", "hits": 3, "amount": 5000}]
        faults = self.shm / "faults.json"
        faults.write_text(json.dumps(script), encoding="utf-8")
        clean, _ = self.lockstep(16, self.nothing, "--seed", "2")
        clean = [frame[3] for frame in clean]
        log = self.folder / "faults.fits"
        seen, report = self.lockstep(16, self.nothing, "--seed", "2", "--faults", str(faults), "--log", str(log))
        self.assertEqual((report["faulty"], report["published"]), (14, 16))
        counts = [frame[1] for frame in seen]
        self.assertEqual(counts, [1, 2, 3, 5, 6, 16, 17, 18, 19, 20, 1, 2, 3, 4, 5])
        self.assertEqual([frame[2] for frame in seen], [0, 0, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15])
        inodes = [frame[0] for frame in seen]
        self.assertEqual(len(set(inodes[:10])), 1)
        self.assertNotEqual(inodes[9], inodes[10])
        self.assertNotEqual(inodes[11], inodes[12])
        pixels = {number: frame for _, _, number, frame in seen}
        np.testing.assert_array_equal(seen[1][3], clean[0])
        np.testing.assert_array_equal(pixels[3], clean[0])
        np.testing.assert_array_equal(pixels[5], np.vstack([clean[5][:300], clean[4][300:]]))
        self.assertLess(pixels[7].max(), 10)
        self.assertEqual((pixels[8].min(), pixels[8].max()), (32767, 32767))
        np.testing.assert_array_equal(pixels[9], np.roll(clean[9], (2, -1), axis=(0, 1)))
        flipped = clean[10].copy()
        flipped[7, 5] ^= 1 << 14
        np.testing.assert_array_equal(pixels[10], flipped)
        self.assertEqual(np.count_nonzero(pixels[14] - clean[14]), 3)
        for number in (4, 6, 11, 12, 13, 15):
            np.testing.assert_array_equal(pixels[number], clean[number])
        table = Table.read(log)
        self.assertEqual([str(text).split(" ", maxsplit=1)[0] for text in table["fault"].filled("")[1:15]],
                         [fault["kind"] for fault in script])
        self.assertEqual(table["cnt0"][1], 0)
        self.assertTrue(np.isnan(table["published"].filled(np.nan)[1]))
        self.assertGreater(table["published"][12] - table["due"][12], 0.04)

    def test_faults_are_seen_by_watch(self):
        """Every kind, four times over: what the watcher does not lose it calls by its name."""
        kinds = [{"kind": "drop"}, {"kind": "repeat"}, {"kind": "twice"}, {"kind": "freeze"},
                 {"kind": "pause", "milliseconds": 20}, {"kind": "tear", "rows": 400}, {"kind": "dark"},
                 {"kind": "saturate"}, {"kind": "stuck", "x": 300, "y": 300, "width": 23, "height": 23},
                 {"kind": "shift", "rows": 1}, {"kind": "shift", "columns": -3},
                 {"kind": "cosmic", "hits": 2, "amount": 9000}, {"kind": "bitflip", "x": 12, "y": 13, "bit": 11},
                 {"kind": "lost", "subaperture": 544}, {"kind": "burst", "factor": 2}, {"kind": "counter", "by": 0}]
        faults = [{"frame": 40 + 4 * k} | kind for k, kind in enumerate(4 * kinds)]
        faults.append({"frame": faults[-1]["frame"] + 4, "kind": "remake"})
        script = self.shm / "faults.json"
        script.write_text(json.dumps(faults), encoding="utf-8")
        for rate in (60, 30, 15):  # slower where a busy machine loses frames
            with self.start("--d-over-r0=5", f"--rate={rate}", f"--frames={faults[-1]['frame'] + 20}",
                            f"--faults={script}") as server:
                Reader.attached(self.stream, server)
                seconds = len(faults) * 4 / rate + 1.5
                watched = json.loads(self.tool("watch", "wfs", f"--seconds={seconds}", "--json",
                                               env=self.environment).stdout)
                server.kill()
            if watched["lost"] < 0.03 * watched["frames"]:
                break
        for key in ("unpublished", "repeated", "torn", "misnumbered", "made_anew"):
            self.assertGreater(watched[key], 0, (key, watched))
        for key, count in watched["odd"].items():
            self.assertGreater(count, 0, (key, watched))
            self.assertLessEqual(count, 8, (key, watched))

    # --- Beginnings and ends

    def test_ends_in_order(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            log = self.shm / "log.fits"
            with self.start("--rate", "200", "--json", "--log", str(log), "--png", str(self.shm / "p.png")) as process:
                reader = Reader.attached(self.stream, process)
                until(lambda: reader.count() > 20, process)  # pylint: disable=cell-var-from-loop
                process.send_signal(number)
                out, err = process.communicate()
            self.assertEqual((process.returncode, err), (-number, "quen-shs: ended by a signal, in order\n"))
            self.assertFalse(self.stream.exists())
            report = json.loads(out)
            self.assertEqual(report["ended"], "a signal has come")
            self.assertEqual(sum(bar["count"] for bar in report["lateness"]["histogram"]), report["published"])
            table = Table.read(log)
            self.assertIn(report["published"], (len(table), len(table) + 1))
            self.assertEqual(list(table["cnt0"]), list(range(1, len(table) + 1)))
            np.testing.assert_allclose(np.diff(table["due"]) * 200, np.diff(table["FRAME"]), atol=1e-5)
            self.assertTrue(np.all(table["published"] >= table["due"]))
            np.testing.assert_allclose(table["published_tai"] - table["published"],
                                       table["due_tai"] - table["due"], atol=1e-3)
            self.assertTrue((self.shm / "p.png").read_bytes().startswith(b"\x89PNG"))

    def test_kills(self):
        generator = random.Random(1)
        log = self.shm / "log.fits"
        inodes = {None}
        kept = []  # so that no inode is used again
        for kill in range(KILLS):
            with self.start("--rate", "0", "--log", str(log)) as process:
                until(lambda: inode_of(self.stream) not in inodes, process)
                time.sleep(generator.uniform(0.0, 0.05))
                process.kill()
            kept.append(open(self.stream, "rb"))  # pylint: disable=consider-using-with
            inodes.add(os.fstat(kept[-1].fileno()).st_ino)
            self.assertEqual(rows(log) % 64, 0, kill)
        self.assertEqual(len(inodes), 1 + KILLS)
        for file in kept:
            file.close()
        with self.start("--rate", "0", "--log", str(log)) as process:
            until(lambda: rows(log) >= 128, process)
            process.kill()
        table = Table.read(log)
        np.testing.assert_array_equal(table["FRAME"], np.arange(len(table)))

    def test_living_server(self):
        with self.start("--rate", "100") as process:
            reader = Reader.attached(self.stream, process)
            second = self.tool("serve", str(self.sensor), "--stream", "wfs", env=self.environment, check=False)
            self.assertEqual((second.returncode, second.stdout), (1, ""))
            self.assertEqual(second.stderr, f"quen-shs: a living program writes the stream {self.stream}; end it, or "
                                            "choose another name\n")
            count = reader.count()
            until(lambda: reader.count() > count, process)
            self.assertEqual(inode_of(self.stream), reader.inode)
            process.terminate()
            process.communicate()

    def test_folders(self):
        name = f"quen-{os.getpid()}"
        missing = self.tool("serve", str(self.sensor), "--stream", name, "--rate", "0", "--frames", "1", "--json",
                            env={**self.environment, "MILK_SHM_DIR": str(self.shm / "none")})
        self.assertNotIn(str(self.shm), json.loads(missing.stdout)["stream"])
        self.stream.mkdir()
        in_the_way = self.tool("serve", str(self.sensor), "--stream", "wfs", env=self.environment, check=False)
        self.assertEqual((in_the_way.returncode, in_the_way.stdout), (1, ""))
        self.assertIn("is no file", in_the_way.stderr)
        self.shm.chmod(0o755 if os.geteuid() == 0 else 0o555)
        try:
            closed = self.tool("serve", str(self.sensor), "--stream", "other", "--frames", "1", "--rate", "0",
                               env=self.environment, check=False, **({"user": 65534} if os.geteuid() == 0 else {}))
        except PermissionError:
            self.skipTest("another user cannot run the tool here")
        finally:
            self.shm.chmod(0o700)
        self.assertEqual((closed.returncode, closed.stdout), (1, ""))
        self.assertIn("Permission denied", closed.stderr)

    def test_wrong_arguments(self):
        for arguments, sentence in (
                (["--stream", "wfs", "--lockstep"],
                 "--lockstep: expected --corrections or --displacements with it, found neither"),
                (["--stream", "wfs", "--lockstep", "--rate", "5", "--corrections", "modes"],
                 "--lockstep: expected --rate 0 with it, found 5"),
                (["--stream", "wfs", "--realtime", "5", "--rate", "0"],
                 "--realtime: expected a rate above 0, found 0; without one nothing else would ever run"),
                (["--stream", "wfs", "--corrections", "wfs"],
                 "--stream: expected another stream than the one that is read, found wfs"),
                (["--stream", "a/b"], "the name of a stream must have 1 to 79 bytes, no slash and no zero byte, found "
                                      "'a/b'")):
            result = self.tool("serve", str(self.sensor), *arguments, env=self.environment, check=False)
            self.assertEqual((result.returncode, result.stderr), (1, f"quen-shs: {sentence}\n"))
            self.assertEqual(os.listdir(self.shm), [])
        nameless = self.tool("serve", str(self.sensor), env=self.environment, check=False)
        self.assertEqual((nameless.returncode, nameless.stderr),
                         (2, "--stream: expected NAME, found none\nRun with --help for more information.\n"))


if __name__ == "__main__":
    TOOL = os.path.abspath(sys.argv.pop(1))
    unittest.main()
