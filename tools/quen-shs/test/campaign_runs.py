#!/usr/bin/env python3
"""A campaign from outside: killed at random moments, run by two processes at once, and its tables against numpy.

    campaign_runs.py QUEN_SHS [TEST...]
"""

import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import numpy as np
from astropy.table import Table

TOOL = ""
KILLS = 100
RUNS = 400
CAMPAIGN = """
verb = "score"
calibration = "sensor"
frames = 1
repeats = 50
[axes]
engine = ["weighted", "brightest"]
noise = { from = 0, to = 30, step = 10 }
"""


def tool(*arguments, check=True):
    return subprocess.run([TOOL, *arguments], capture_output=True, text=True, check=check)


class Campaigns(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # pylint: disable=consider-using-with
        cls.temporary = tempfile.TemporaryDirectory()
        cls.folder = pathlib.Path(cls.temporary.name)
        tool("calibrate", str(cls.folder / "sensor"))
        cls.file = cls.folder / "scores.toml"
        cls.file.write_text(CAMPAIGN, encoding="utf-8")
        cls.command = [TOOL, "campaign", "run", str(cls.file), "--output"]
        cls.plain = cls.folder / "plain"
        subprocess.run([*cls.command, str(cls.plain)], check=True, capture_output=True)
        tool("campaign", "merge", str(cls.plain))

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def assert_equals_plain(self, folder):
        tool("campaign", "merge", str(folder))
        for name in ("runs.fits", "points.fits"):
            self.assertEqual((folder / name).read_bytes(), (self.plain / name).read_bytes(), name)

    def done(self, folder):
        return json.loads(tool("campaign", "status", str(folder), "--json").stdout)["done"]

    @staticmethod
    def wait_for_work(folder, process):
        """Waits until a process tells that it is at work, or has ended."""
        while process.poll() is None and not list(folder.glob(f"at-work-*-{process.pid}")):
            time.sleep(0.002)

    def test_kills(self):
        """Every kill is of a campaign that has runs to do: one that is done is compared, and begun again."""
        generator = random.Random(1)
        folder = self.folder / "killed"
        done = 0
        completed = 0
        for kill in range(KILLS):
            shard = generator.choice(["1/1", "1/2", "2/2", "2/3"])
            with subprocess.Popen([*self.command, str(folder), "--jobs", generator.choice("12"), "--shard", shard],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
                if kill % 2 == 0:  # the others are killed while they begin, if not before
                    self.wait_for_work(folder, process)
                time.sleep(generator.uniform(0.0, 0.15))
                process.send_signal(signal.SIGKILL)
            if not (folder / "campaign.json").exists():
                continue
            now = self.done(folder)
            self.assertGreaterEqual(now, done, kill)
            done = now
            if done == RUNS:
                self.assert_equals_plain(folder)
                shutil.rmtree(folder)
                done = 0
                completed += 1
        print(f"{KILLS} kills: {completed} campaigns done, and {done} of {RUNS} runs", file=sys.stderr)
        self.assertGreater(completed + done, 0)
        subprocess.run([*self.command, str(folder)], check=True, capture_output=True)
        self.assert_equals_plain(folder)

    def test_interruption(self):
        folder = self.folder / "interrupted"
        with subprocess.Popen([*self.command, str(folder), "--jobs", "2"], stderr=subprocess.PIPE, text=True) as process:
            while not (folder / "runs-1-of-1").exists() or self.done(folder) < 3:
                time.sleep(0.01)
            process.send_signal(signal.SIGINT)
            _, error = process.communicate()
        self.assertEqual(process.returncode, -signal.SIGINT)
        self.assertEqual(error,
                         "quen-shs: interrupted; what is finished is kept, and the same command goes on\n")
        self.assertEqual([name for name in os.listdir(folder) if name.startswith("at-work")], [])
        subprocess.run([*self.command, str(folder)], check=True, capture_output=True)
        self.assert_equals_plain(folder)

    def test_two_writers(self):
        folder = self.folder / "two"
        # pylint: disable=consider-using-with
        writers = [subprocess.Popen([*self.command, str(folder), "--jobs", "1"], stdout=subprocess.DEVNULL)
                   for _ in range(2)]
        seen = 0
        while writers[0].poll() is None:
            if (folder / "campaign.json").exists():
                status = json.loads(tool("campaign", "status", str(folder), "--json").stdout)
                self.assertEqual(status["damaged"], 0)
                seen = max(seen, status["running"])
        self.assertEqual([writer.wait() for writer in writers], [0, 0])
        self.assertGreaterEqual(seen, 1)
        self.assert_equals_plain(folder)

    def test_tables(self):
        runs = Table.read(self.plain / "runs.fits")
        points = Table.read(self.plain / "points.fits")
        self.assertEqual((len(runs), len(points)), (RUNS, 8))
        self.assertEqual(len(set(runs["seed"])), RUNS)
        self.assertEqual(runs["rms"].unit, "pixel")
        for point in points:
            these = runs[(runs["engine"] == point["engine"]) & (runs["noise"] == point["noise"])]
            self.assertEqual((len(these), point["runs"], point["failures"]), (50, 50, 0))
            for name in ("rms", "bias_x", "flux_rms", "failed_spots"):
                values = np.asarray(these[name])
                scatter = np.std(values, ddof=1)
                for statistic, expected in (("mean", np.mean(values)), ("scatter", scatter),
                                            ("error", scatter / np.sqrt(len(values)))):
                    np.testing.assert_allclose(point[f"{name}_{statistic}"], expected, rtol=1e-10, atol=1e-15)

    def with_mounts(self, script):
        """Runs a shell script that may mount: what it mounts is its own, and gone with it."""
        can = subprocess.run(["unshare", "-rm", "true"], capture_output=True, check=False).returncode == 0
        if not can:
            self.skipTest("this system lets no process have mounts of its own")
        environment = {**os.environ, "TOOL": TOOL, "FILE": str(self.file)}
        result = subprocess.run(["unshare", "-rm", "sh", "-euc", script], cwd=self.folder, env=environment,
                                capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result

    def test_full_disk(self):
        os.mkdir(self.folder / "disk")
        result = self.with_mounts("""
            mount -t tmpfs -o size=60k tmpfs disk
            "$TOOL" campaign run "$FILE" --output disk/out --jobs 2 && exit 9
            "$TOOL" campaign status disk/out --json
            mount -o remount,size=10m disk
            "$TOOL" campaign run "$FILE" --output disk/out >/dev/null
            cp -r disk/out from-disk
        """)
        self.assertEqual(result.stderr, "quen-shs: cannot write disk/out/runs-1-of-1: No space left on device\n")
        status = json.loads(result.stdout)
        self.assertGreater(status["done"], 50)
        self.assertGreater(status["missing"], 50)
        self.assertEqual(status["done"] + status["missing"], RUNS)
        self.assert_equals_plain(self.folder / "from-disk")

    def test_read_only_folder(self):
        folder = self.folder / "read-only"
        subprocess.run([*self.command, str(folder), "--shard", "1/2"], check=True, capture_output=True)
        result = self.with_mounts("""
            mount --bind read-only read-only
            mount -o remount,bind,ro read-only
            "$TOOL" campaign run "$FILE" --output read-only && exit 9
            "$TOOL" campaign run "$FILE" --output read-only --shard 1/2 && exit 9
            "$TOOL" campaign merge read-only --partial && exit 9
            "$TOOL" campaign merge read-only --partial --output elsewhere >/dev/null
            "$TOOL" campaign status read-only --json
        """)
        self.assertEqual(json.loads(result.stdout)["done"], RUNS // 2)
        self.assertEqual(result.stderr.splitlines(), [
            "quen-shs: cannot write read-only/runs-1-of-1: Read-only file system",
            "quen-shs: cannot write read-only/runs-1-of-2: Read-only file system",
            "quen-shs: cannot write read-only/runs.fits: Read-only file system"])
        self.assertEqual(len(Table.read(self.folder / "elsewhere" / "runs.fits")), RUNS // 2)
        subprocess.run([*self.command, str(folder)], check=True, capture_output=True)
        self.assert_equals_plain(folder)


if __name__ == "__main__":
    TOOL = os.path.abspath(sys.argv.pop(1))
    unittest.main()
