#!/usr/bin/env python3
"""A campaign on a cluster of two nodes on this machine: submitted, a node killed at work, submitted again.

    campaign_on_cluster.py QUEN_SHS SCRIPT_OF_THE_CLUSTER

Exits with 77 where Slurm is not installed.
"""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

TOOL = ""
CLUSTER = ""
SKIPPED = 77
LONGEST = 200  # seconds, for busy machines, on others it takes 35; then the test fails, and ends the cluster as ever
CAMPAIGN = """
verb = "loop"
calibration = "sensor"
frames = 60
repeats = 15
[axes]
gain = [0.3, 0.6]
delay = [1, 2]
"""


def run(*command):
    result = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.stderr}")
    return result.stdout


def wait_until(what, condition):
    """Waits for ever: the alarm ends it."""
    print(f"waiting until {what}", file=sys.stderr)
    while not condition():
        time.sleep(0.1)


class CampaignOnCluster(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()  # pylint: disable=consider-using-with
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        self.file = self.folder / "gains.toml"
        self.file.write_text(CAMPAIGN, encoding="utf-8")
        run(TOOL, "calibrate", str(self.folder / "sensor"))
        signal.signal(signal.SIGALRM, self.fail_late)
        signal.alarm(LONGEST)
        self.addCleanup(signal.alarm, 0)
        self.files_of_cluster = str(self.folder / "cluster")
        os.environ["SLURM_CONF"] = self.files_of_cluster + "/slurm.conf"
        self.addCleanup(run, CLUSTER, "stop", self.files_of_cluster)
        run(CLUSTER, "start", self.files_of_cluster)

    def fail_late(self, *_):
        raise AssertionError(f"expected an end within {LONGEST} seconds")

    def merged(self, name):
        run(TOOL, "campaign", "merge", str(self.folder / name))
        return [(self.folder / name / table).read_bytes() for table in ("runs.fits", "points.fits")]

    def status(self):
        return json.loads(run(TOOL, "campaign", "status", str(self.folder / "gains"), "--json"))

    def submit(self):
        return run("sbatch", "--parsable", str(self.folder / "gains" / "slurm.sh")).strip()

    @staticmethod
    def busy_nodes():
        return set(run("squeue", "--noheader", "--states=running", "--format=%N").split())

    def processes_of(self, node):
        """The node's daemon, and its tasks with those that watch them: all of this test's cluster."""
        of_cluster = set()
        found = set()
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                words = (process / "environ").read_bytes().decode(errors="replace").split("\0")
                line = (process / "cmdline").read_bytes().decode(errors="replace").split("\0")
                parent = int((process / "stat").read_text(encoding="utf-8").rpartition(")")[2].split()[1])
            except (OSError, IndexError):
                continue  # it has ended
            if "SLURM_CONF=" + os.environ["SLURM_CONF"] not in words:
                continue
            of_cluster.add(int(process.name))
            if line[1:3] == ["-N", node]:
                found.add(int(process.name))
            if "SLURMD_NODENAME=" + node in words:
                found.update([parent, int(process.name)])
        return found & of_cluster

    def test_a_killed_node_loses_nothing(self):
        run(TOOL, "campaign", "slurm", str(self.file), "--output", str(self.folder / "gains"), "--nodes", "2",
            "--shards", "4")
        job = self.submit()
        wait_until("both nodes work", lambda: self.busy_nodes() == {"n1", "n2"})
        wait_until("there are results of both", lambda: self.status()["done"] >= 6 and self.status()["running"] == 2)
        for process in self.processes_of("n1"):
            os.kill(process, signal.SIGKILL)
        run("scancel", job)
        run(CLUSTER, "start", self.files_of_cluster)
        wait_until("the queue is empty", lambda: run("squeue", "--noheader") == "")
        before = self.status()
        print(f"{before['done']} of {before['runs']} done when a node was killed", file=sys.stderr)
        self.assertGreater(before["done"], 0)
        self.assertGreater(before["missing"], 0)
        again = self.submit()
        wait_until("the queue is empty", lambda: run("squeue", "--noheader") == "")
        self.assertEqual(self.status()["missing"], 0)
        logs = [path.read_text(encoding="utf-8") for path in (self.folder / "gains").glob(f"slurm-{again}-*.log")]
        were_there = sum(int(line.split()[-1]) for log in logs for line in log.splitlines() if "were there" in line)
        self.assertEqual((len(logs), were_there), (4, before["done"] + before["failed"]))
        run(TOOL, "campaign", "run", str(self.file), "--output", str(self.folder / "plain"))
        self.assertEqual(self.merged("gains"), self.merged("plain"))


if __name__ == "__main__":
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    missing = [name for name in ("slurmctld", "slurmd", "sbatch") if shutil.which(name) is None]
    if missing:
        print(f"skipped: there is no {', no '.join(missing)}; scripts/setup --cluster installs them")
        sys.exit(SKIPPED)
    CLUSTER = os.path.abspath(sys.argv.pop())
    TOOL = os.path.abspath(sys.argv.pop())
    unittest.main()
