#!/usr/bin/env python3
"""The tool's files, from outside: which are touched, and what becomes of them when something fails.

    files_of_runs.py TOOL [CLASS...]

QUEN_KILLS says how often Kills ends a run (24).
"""

import collections
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import threading
import time
import unittest

TOOL = ""
SYNTAX = ["out.fits[1]", "x(made.fits)", "x[slopes][col x]", "a+1", "!bang", "x.fits.gz", "x.fits.Z", "stdin", "x.imh",
          "https:", "raw[i4]", "http://127.0.0.1:9/x", "ftp://127.0.0.1:9/x", "root://127.0.0.1:9/x", "shm://h3",
          "mem://x", "file://x", "stdin://x", "compress://x", "~root"]
HOSTILE = [*SYNTAX, " leading", "trailing ", "new\nline", "tab\tname", "été ü", "{}", "%%", "[a,b]", "*",
           "$(touch made)", "-x", "\\x", "'\"", "x" * 200, b"\xff\xfe".decode("utf-8", "surrogateescape")]
LEFTOVER = re.compile(r"\.quen-shs-[0-9a-f]{32}\.part")


def read(path):
    with open(path, "rb") as file:
        return file.read()


def without_checksums(data):
    """The bytes of a FITS file without the cards that carry the time of writing."""
    if not data.startswith(b"SIMPLE"):
        return data
    cards = [data[at:at + 80] for at in range(0, len(data), 80)]
    return b"".join(card for card in cards if not card.startswith((b"CHECKSUM", b"DATASUM")))


def header(*cards):
    text = "".join(card.ljust(80) for card in [*cards, "END"])
    return text.ljust(-(-len(text) // 2880) * 2880).encode()


class Folder(unittest.TestCase):
    """A folder of a test's own, with a calibration in "s" and a frame, slopes and telemetry of it."""

    sample = None

    @classmethod
    def setUpClass(cls):
        cls.sample = tempfile.mkdtemp(prefix="quen_sample_")
        for arguments in (["calibrate", "s"], ["frame", "s", "--shape", "tip:1", "--truth", "truth.fits"],
                          ["measure", "s", "s/frame.fits"], ["loop", "s", "--frames", "10"],
                          ["loop", "s", "--frames", "10", "--sweep", "gain=1:1:1"]):
            subprocess.run([TOOL, *arguments], cwd=cls.sample, check=True, stdout=subprocess.DEVNULL)

        with open(os.path.join(cls.sample, "flat.fits"), "wb") as file:  # of 1 but for one row of 0, in bytes
            file.write(header("SIMPLE  =                    T", "BITPIX  =                    8",
                              "NAXIS   =                    2", "NAXIS1  =                  840",
                              "NAXIS2  =                  816"))
            file.write(bytes(840) + b"\1" * (840 * 815))
            file.write(bytes(-840 * 816 % 2880))
        start = ["SIMPLE  =                    T", "BITPIX  =                   16", "NAXIS   =                    2"]
        with open(os.path.join(cls.sample, "small.fits"), "wb") as file:
            file.write(header(*start, "NAXIS1  =                   48", "NAXIS2  =                   60") + bytes(5760))
        with open(os.path.join(cls.sample, "spot.fits"), "wb") as file:
            file.write(header(*start, "NAXIS1  =                    3", "NAXIS2  =                    3"))
            file.write(b"\0\1" * 1440)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.sample)

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="quen_files_")
        shutil.copytree(self.sample, self.folder, dirs_exist_ok=True)

    def tearDown(self):
        shutil.rmtree(self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_tool(self, *arguments, before=(), **options):
        options = {"stdin": subprocess.DEVNULL, "capture_output": True, "timeout": 60, **options}
        return subprocess.run([*before, TOOL, *arguments], cwd=self.folder, check=False, **options)

    def do(self, *arguments, **options):
        result = self.run_tool(*arguments, **options)
        self.assertEqual(result.returncode, 0, (arguments, result.stderr))
        return result

    def refuses(self, *arguments, **options):
        """Fails with one sentence; returns it."""
        result = self.run_tool(*arguments, **options)
        text = result.stderr.decode(errors="surrogateescape")
        self.assertIn(result.returncode, (1, 2), (arguments, text))
        self.assertNotIn("terminate called", text)
        return text

    def entries(self):
        found = set()
        for root, folders, files in os.walk(self.folder):
            for name in folders + files:
                found.add(os.path.relpath(os.path.join(root, name), self.folder))
        return found

    def contents(self, *names):
        found = {}
        for name in names:
            try:
                found[name] = without_checksums(read(self.path(name)))
            except FileNotFoundError:
                pass
        return found


class Names(Folder):
    """A name is a name."""

    def parents(self, name):
        """The folders that a name has, which are there as soon as it is."""
        parts = os.path.normpath(name).split(os.sep)
        return {os.sep.join(parts[:count]) for count in range(1, len(parts) + 1)}

    def expect_made(self, arguments, *names):
        """Runs a command that makes these files, and no other; then takes them away."""
        before = self.entries()
        result = self.do(*arguments, "--json") if arguments[0] != "manual" else self.do(*arguments)
        made = set().union(*(self.parents(name) for name in names))
        self.assertEqual(self.entries(), before | made, arguments)
        if arguments[0] != "manual":
            printed = [os.path.normpath(name) for name in json.loads(result.stdout)["files"]]
            wanted = [os.path.normpath(name).encode(errors="surrogateescape").decode(errors="replace")
                      for name in names]
            self.assertEqual(printed, wanted)
        return made - before

    def remove(self, entries):
        for entry in sorted(entries, key=len, reverse=True):
            path = self.path(entry)
            os.rmdir(path) if os.path.isdir(path) else os.unlink(path)

    def test_outputs(self):
        for name in HOSTILE:
            with self.subTest(name=name):
                for arguments, names in (
                        (["frame", "s", "--shape=tip:1", f"--output={name}", f"--truth={name}2"], [name, name + "2"]),
                        (["measure", "s", "s/frame.fits", f"--output={name}"], [name]),
                        (["view", "s/loop/sweep.fits", f"--png={name}"], [name]),
                        (["check", "s", f"--png={name}"], [name]),
                        (["score", "s", "--frames=1", "--engine=weighted", f"--output={name}", f"--png={name}2"],
                         [name, name + "2"]),
                        (["manual", f"--folder={name}"], [f"{name}/{page}" for page in self.pages]),
                        (["loop", "s", "--frames=10", "--sweep=gain=1:1:1", f"--folder={name}"],
                         [f"{name}/sweep.fits", f"{name}/sweep.png"])):
                    made = self.expect_made(arguments, *names)
                    if arguments[0] == "frame":
                        truth = without_checksums(read(self.path(name + "2")))
                        self.assertEqual(truth, self.contents("truth.fits")["truth.fits"])
                    self.remove(made)

    def test_inputs(self):
        for name in HOSTILE:
            with self.subTest(name=name):
                self.place("s/frame.fits", name)
                expected = {"slopes.fits": self.contents("s/slopes.fits")["s/slopes.fits"]}
                before = self.entries()
                self.do("measure", "--output=slopes.fits", "--", "s", name)
                self.assertEqual(self.entries(), before | {"slopes.fits"})
                self.assertEqual(self.contents("slopes.fits"), expected)
                self.remove({"slopes.fits"} | (self.parents(name)))
                for file, arguments in (("truth.fits", ["frame", "s", f"--displacements={name}", "--output=made"]),
                                        ("truth.fits", ["measure", "s", "s/frame.fits", f"--truth={name}",
                                                        "--output=made"]),
                                        ("spot.fits", ["measure", "s", "s/frame.fits", "--engine=correlation",
                                                       f"--template={name}", "--output=made"]),
                                        ("s/frame.fits", ["measure", "s", "s/frame.fits", "--engine=correlation",
                                                          f"--template-from={name}", "--output=made"]),
                                        *(("flat.fits", ["measure", "s", "s/frame.fits", f"--{kind}={name}",
                                                         "--output=made"])
                                          for kind in ("dark-map", "flat-map", "bad-pixels")),
                                        ("s/slopes.fits", ["view", "small.fits", f"--slopes={name}",
                                                           "--png=made"]),
                                        ("s/loop/sweep.fits", ["view", "--png=made", "--", name]),
                                        ("s/loop/telemetry.fits", ["loop", "s", "--frames=10", "--sweep=gain=1:1:1",
                                                                   f"--disturbance={name}", "--folder=made"])):
                    self.place(file, name)
                    before = self.entries()
                    self.do(*arguments)
                    made = self.entries() - before
                    self.assertTrue(made and all(entry.split("/")[0] == "made" for entry in made), made)
                    self.remove(self.parents(name) | made)

    def test_folders(self):
        for name in HOSTILE:
            with self.subTest(name=name):
                files = [f"{name}/data/{file}" for file in ("M2S.fits", "CM.fits", "shs_rois.fits")]
                made = self.expect_made(["calibrate", f"./{name}"], *files)
                before = self.entries()
                self.do("check", "--", name)
                self.do("frame", "--output=frame.fits", "--shape=tip:1", "--", name)
                self.do("view", "small.fits", f"--calibration={name}", "--png=picture.png")
                self.assertEqual(self.entries(), before | {"frame.fits", "picture.png"})
                found = self.contents("frame.fits", "s/frame.fits")
                self.assertEqual(found["frame.fits"], found["s/frame.fits"])
                self.remove(made | {"frame.fits", "picture.png"})

    def test_descriptions_of_detectors(self):
        for name in ("a b[1].json", "\n.x", "d/c;m*.json", "no ending"):
            with self.subTest(name=name):
                stem = os.path.splitext(name)[0]
                maps = [f"{stem}_{what}.fits" for what in ("flat", "bad_pixels", "bad_pixel_levels")]
                made = self.expect_made(["detector", "--new", name], name, *maps)
                made |= self.expect_made(["detector", name, f"--png={name}.png"], name + ".png")
                self.assertIn("is there already", self.refuses("detector", "--new", name))
                self.do("frame", "s", "--detector", name, "--output=f.fits")
                self.remove(made | {"f.fits"})

    def place(self, file, name):
        os.makedirs(os.path.dirname(self.path(name)) or ".", exist_ok=True)
        shutil.copy(self.path(file), self.path(name))

    @property
    def pages(self):
        verbs = ["", "-calibrate", "-check", "-frame", "-measure", "-view", "-score", "-loop", "-campaign",
                 "-campaign-plan", "-campaign-run", "-campaign-status", "-campaign-merge", "-campaign-plot", "-campaign-show",
                 "-campaign-slurm", "-serve", "-detector", "-watch", "-manual", "-completion"]
        return [f"quen-shs{verb}.1" for verb in verbs]

    def test_compressed_files_are_no_other_name(self):
        shutil.copy(self.path("s/frame.fits"), self.path("x.fits"))
        subprocess.run(["gzip", self.path("x.fits")], check=True)
        self.assertIn("x.fits: cannot be read: No such file", self.refuses("view", "x.fits"))
        before = self.entries()
        self.do("view", "x.fits.gz", "--png=p.png")
        self.assertEqual(self.entries(), before | {"p.png"})

    def test_empty_names(self):
        for arguments in (["frame", "s", "--output", ""], ["view", ""], ["calibrate", ""],
                          ["loop", "s", "--folder", ""],
                          ["score", "s", "--output", ""], ["manual", "--folder", ""]):
            self.assertIn("expected a name, found an empty one", self.refuses(*arguments))

    def test_view_beside_a_pipe(self):
        read, write = os.pipe()
        os.close(write)
        self.assertIn("give --png", self.refuses("view", f"/dev/fd/{read}", pass_fds=[read]))
        os.close(read)


def tracer():
    """The command to trace with: one that stops a run at the calls that are looked at alone, where the system can do
    that, and not at each of its thousands. None where nothing may be traced."""
    for options in (["--seccomp-bpf"], []):
        command = ["strace", "-f", "-qq", *options]
        try:
            trial = subprocess.run([*command, "-o", "/dev/null", "-e", "trace=write", "true"], capture_output=True,
                                   check=False)
        except FileNotFoundError:
            return None
        if trial.returncode == 0 and not trial.stderr:
            return command
    return None


TRACER = tracer()


@unittest.skipUnless(TRACER, "no strace, or it may not trace")
class Traced(Folder):
    """What the system is asked for."""

    # A sanitizer cannot look for leaks in a traced process.
    environment = {**os.environ, "LD_LIBRARY_PATH": "", "ASAN_OPTIONS": "detect_leaks=0",
                   "LSAN_OPTIONS": "detect_leaks=0"}
    del environment["LD_LIBRARY_PATH"]

    def trace(self, calls, *arguments, inject=(), of=(), names=False, check=True):
        """Calls of these names, with faults put in their way; only those that concern the files `of`, if any. With
        `names`, a descriptor's file stands behind it."""
        log = self.path("../" + os.path.basename(self.folder) + ".log")
        options = [option for fault in inject for option in ("-e", "inject=" + fault)]
        options += [option for file in of for option in ("-P", os.path.realpath(self.path(file)))]
        options += ["-y"] if names else []
        before = [*TRACER, "-s", "4096", "-o", log, "-e", "trace=" + calls, *options]
        try:
            result = self.run_tool(*arguments, before=before, env=self.environment)
            with open(log, encoding="utf-8", errors="surrogateescape") as file:
                lines = [line.split(maxsplit=1)[1] for line in file.read().splitlines()]
        finally:
            os.unlink(log)
        if check:
            self.assertEqual(result.returncode, 0, (arguments, result.stderr))
        return result, lines

    LIBRARY = re.compile(r"(.*/)?(lib[\w+.-]+\.so[.\d]*|glibc-hwcaps(/[\w-]+)?|tls(/[\w/-]+)?)")  # the loader's search

    def test_only_named_files_and_no_sockets(self):
        system = ("/lib", "/usr/", "/etc/", "/proc/self/", "/proc/mounts", "/proc/cpuinfo",
                  "/proc/sys/", "/proc/filesystems", "/sys/", "/var/cache/fontconfig", "/dev/null", "/proc/stat",
                  "/selinux",  # which is looked for while the camera's libraries are loaded
                  os.path.dirname(os.path.realpath(TOOL)))
        home = os.path.expanduser("~")
        own_fonts = tuple(os.path.join(home, name) for name in (".cache", ".fonts", ".local", ".config", ".fontconfig"))
        own_fonts += tuple(filter(None, (os.environ.get("XDG_CACHE_HOME"), os.environ.get("XDG_DATA_HOME"))))
        for name in SYNTAX:
            os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
            shutil.copy(self.path("s/slopes.fits"), self.path(name + ".fits"))
            for arguments in (["view", "s/loop/sweep.fits", f"--png={name}"],
                              ["frame", "s", f"--displacements={name}.fits", f"--output={name}"]):
                _, lines = self.trace("%file,%network,shmget,shmat,execve", *arguments)
                real = os.path.realpath(self.folder)
                given = ("s/loop/sweep.fits", "s/data/M2S.fits", "s/data/CM.fits", "s/data/shs_rois.fits", name,
                         name + ".fits")
                named = {os.path.normpath(os.path.join(real, one)) for one in given}
                folders = set()
                for path in named:
                    while path != "/":
                        path = os.path.dirname(path)
                        folders.add(path)
                for line in lines:
                    call = line.split("(")[0]
                    self.assertNotIn(call, ("socket", "connect", "shmget", "shmat"), line)
                    if call == "execve" or line.startswith(("---", "+++")):
                        continue
                    for path in re.findall(r'"([^"]*)"', line)[:1 if call == "readlink" else None]:
                        if self.LIBRARY.fullmatch(path):
                            continue
                        whole = os.path.normpath(os.path.join(real, path))
                        is_known = whole in named or whole in folders or LEFTOVER.fullmatch(os.path.basename(whole))
                        self.assertTrue(is_known or path.startswith(system + own_fonts), (arguments, line))

    # --- Every system call of a run fails once

    def need_no_sanitizer(self):
        if b"__asan" in read(TOOL) or b"__tsan" in read(TOOL):
            self.skipTest("sanitizers make system calls of their own, and end where these fail")

    def expect_old_or_new(self, arguments, outputs, calls, other):
        """At every one of these calls that a run makes: a failure and the old files, or none and the new ones."""
        self.need_no_sanitizer()
        self.do(*other)
        old = self.contents(*outputs)
        kept = tempfile.mkdtemp(prefix="quen_old_")
        shutil.copytree(self.folder, kept, dirs_exist_ok=True)
        _, lines = self.trace(",".join(calls), *arguments)
        new = self.contents(*outputs)
        counts = collections.Counter(line.split("(")[0] for line in lines)
        self.assertNotEqual(old, new)
        tried = 0
        for call in calls:
            for code in ("ENOSPC", "EIO"):
                step = 1 if code == "ENOSPC" else 5
                for nth in range(1, counts[call] + 1, step):
                    for name in outputs:
                        shutil.copy(os.path.join(kept, name), self.path(name))
                    result, _ = self.trace(call, *arguments, inject=[f"{call}:error={code}:when={nth}"], check=False)
                    found = self.contents(*outputs)
                    tried += 1
                    where = (arguments, call, code, nth, result.returncode, result.stderr)
                    if b"the result cannot be printed" in result.stderr:
                        self.assertEqual(result.returncode, 1, where)
                        self.assertTrue(found == new, where)
                    elif result.returncode == 0:
                        self.assertTrue(found == new, where)
                    else:
                        self.assertTrue(found == old, where)
                        self.assertEqual(result.stderr.count(b"\n"), 1, where)
        shutil.rmtree(kept)
        self.do(*arguments)
        self.assertEqual([entry for entry in self.entries() if LEFTOVER.search(entry)], [])
        return tried

    WRITING = ("write", "fsync", "lseek", "pread64", "renameat2", "rename", "fchmod", "flock", "getrandom", "unlink",
               "mkdir")

    def test_faults_of_frame(self):
        tried = self.expect_old_or_new(["frame", "s", "--shape=tip:1", "--truth=t.fits"],
                                       ["s/frame.fits", "t.fits"], self.WRITING,
                                       ["frame", "s", "--shape=tip:2", "--truth=t.fits"])
        self.assertGreater(tried, 15)

    def test_faults_of_measure(self):
        self.expect_old_or_new(["measure", "s", "s/frame.fits", "--engine=weighted"], ["s/slopes.fits"],
                               self.WRITING[:6], ["measure", "s", "s/frame.fits", "--limit=0.5"])

    def test_faults_of_loop(self):
        loop = ["loop", "s", "--frames=10", "--sweep"]
        self.expect_old_or_new([*loop, "gain=1:1:1"], ["s/loop/sweep.fits", "s/loop/sweep.png"],
                               ("write", "fsync", "pread64", "renameat2"), [*loop, "gain=0.5:0.5:1"])

    def test_faults_of_calibrate(self):
        self.expect_old_or_new(["calibrate", "s", "--force"],
                               [f"s/data/{name}" for name in ("M2S.fits", "CM.fits", "shs_rois.fits")],
                               ("write", "fsync", "pread64", "renameat2"),
                               ["calibrate", "s", "--force", "--pitch=23.5"])

    def test_faults_of_a_plain_loop(self):
        loop = ["loop", "s", "--frames=10"]
        names = [f"s/loop/{name}" for name in ("frame.fits", "slopes.fits", "telemetry.fits", "loop.png")]
        self.expect_old_or_new(loop, names, ("write", "fsync", "renameat2"), [*loop, "--seed=2"])

    def test_faults_of_score(self):
        self.need_no_sanitizer()
        score = ["score", "s", "--frames=1", "--engine=weighted"]
        outputs = ["--output=a.fits", "--png=b.png"]
        calls = ("write", "fsync", "pread64", "renameat2")
        _, lines = self.trace(",".join(calls), *score, "--seed=2", *outputs, names=True)
        old = self.contents("a.fits", "b.png")
        made = {call: [line for line in lines if line.startswith(call + "(")] for call in calls}
        faults = [(call, nth) for call in calls  # of either output; later renames only tidy up
                  for nth in [nth for nth, line in enumerate(made[call], 1) if ".part" in line][:2]]
        self.assertEqual(len(faults), 8)
        for call, nth in faults:
            result, _ = self.trace(call, *score, *outputs, inject=[f"{call}:error=EIO:when={nth}"], check=False)
            self.assertEqual(result.returncode, 1, (call, nth))
            self.assertEqual(result.stderr.count(b"\n"), 1, result.stderr)
            self.assertEqual(self.contents("a.fits", "b.png"), old, (call, nth))

    def test_faults_of_manual(self):
        self.need_no_sanitizer()
        names = [f"m/{name}" for name in Names.pages.fget(self)]
        self.do("manual", "--folder=m")
        new = self.contents(*names)
        for name in names:
            with open(self.path(name), "w", encoding="ascii") as file:
                file.write("old")
        old = self.contents(*names)
        for call in ("write", "fsync", "renameat2"):
            for nth in (1, 5, 10):
                result, _ = self.trace(call, "manual", "--folder=m", inject=[f"{call}:error=EIO:when={nth}"],
                                       check=False)
                self.assertEqual((result.returncode, result.stderr.count(b"\n")), (1, 1), result.stderr)
                self.assertEqual(self.contents(*names), old, (call, nth))
        self.do("manual", "--folder=m")
        self.assertEqual(self.contents(*names), new)

    def test_faults_of_view(self):
        """An input that cannot be read at some moment is not one without that table."""
        for file in ("s/slopes.fits", "s/data/shs_rois.fits", "s/data/M2S.fits", "s/loop/telemetry.fits"):
            self.do("view", file, "--png=p.png")
            new = self.contents("p.png")
            _, lines = self.trace("openat", "view", file, "--png=p.png")
            opened = [line for line in lines if line.startswith("openat(")]
            nths = [nth for nth, line in enumerate(opened, 1) if '"/proc/self/fd/' in line]
            self.assertGreater(len(nths), 3)
            for nth in nths:
                result, _ = self.trace("openat", "view", file, "--png=p.png", check=False,
                                       inject=[f"openat:error=EIO:when={nth}"])
                found = (file, nth, result.returncode, result.stderr)
                self.assertTrue(result.returncode == 1 or self.contents("p.png") == new, found)
        self.expect_old_or_new(["view", "s/loop/sweep.fits", "--png=p.png"], ["p.png"],
                               ("write", "fsync", "pread64", "renameat2"),
                               ["view", "s/loop/telemetry.fits", "--png=p.png"])

    def test_faults_of_check(self):
        """A file that cannot be opened or read at some moment says nothing of the calibration."""
        whole, lines = self.trace("openat", "check", "s")
        opened = [line for line in lines if line.startswith("openat(")]
        nths = [nth for nth, line in enumerate(opened, 1) if '"/proc/self/fd/' in line]
        self.assertGreater(len(nths), 10)
        for nth in nths:
            result, _ = self.trace("openat", "check", "s", inject=[f"openat:error=EIO:when={nth}"], check=False)
            if result.returncode == 0:
                self.assertEqual(result.stdout, whole.stdout, nth)
            else:
                self.assertEqual((result.returncode, result.stdout), (1, b""), nth)
                self.assertNotIn(b"trusted", result.stderr)
        for file in ("s/data/M2S.fits", "s/data/CM.fits", "s/data/shs_rois.fits"):
            _, lines = self.trace("pread64", "check", "s", of=[file])
            reads = [line for line in lines if line.startswith("pread64(")]
            self.assertGreater(len(reads), 0)
            for nth in range(1, len(reads) + 1):
                result, _ = self.trace("pread64", "check", "s", inject=[f"pread64:error=EIO:when={nth}"], of=[file],
                                       check=False)
                self.assertEqual((result.returncode, result.stdout), (1, b""), (file, nth))
                self.assertEqual(result.stderr, f"quen-shs: {file}: cannot be read: Input/output error\n".encode())

    def test_folder_that_may_not_be_written_to(self):
        measure, fault = ["measure", "s", "s/frame.fits"], ["faccessat2:error=EACCES"]
        new = self.path("new.fits")
        result, _ = self.trace("faccessat2", *measure, f"--output={new}", inject=fault, check=False)
        self.assertEqual(result.stderr.decode(), f"quen-shs: cannot write {new}: Permission denied\n")
        self.trace("faccessat2", *measure, "--output=/dev/null", inject=fault)

    def test_rename_without_exchange(self):
        for arguments in (["measure", "s", "s/frame.fits"], ["measure", "s", "s/frame.fits", "--output=new.fits"]):
            self.trace("renameat2", *arguments, inject=["renameat2:error=EINVAL"])
        self.assertEqual(self.contents("new.fits")["new.fits"], self.contents("s/slopes.fits")["s/slopes.fits"])
        outputs = ["frame", "s", "--truth=t.fits", "--png=p.png"]
        self.do(*outputs)
        result, _ = self.trace("renameat2,rename", *outputs, check=False,
                               inject=["renameat2:error=EINVAL", "rename:error=EIO:when=3"])
        self.assertEqual(result.stderr.decode(), "quen-shs: cannot write p.png: Input/output error; already replaced: "
                                                 "s/frame.fits, t.fits\n")

    def test_undo_that_fails_is_told(self):
        outputs = ["frame", "s", "--truth=t.fits"]
        self.do(*outputs)
        result, _ = self.trace("renameat2", *outputs, inject=["renameat2:error=EIO:when=2+"], check=False)
        self.assertEqual(result.stderr.decode(),
                         "quen-shs: cannot write t.fits: Input/output error; already replaced: s/frame.fits\n")

    def test_without_proc(self):
        """The name itself is opened where it can mean nothing else."""
        shutil.copy(self.path("s/frame.fits"), self.path("a[1].fits"))
        arguments = ["view", "s/frame.fits", "--png=p.png"]
        _, lines = self.trace("access,openat", *arguments, inject=["access:error=ENOENT"])
        self.assertIn(f'"{os.path.realpath(self.folder)}/s/frame.fits", O_RDONLY', "\n".join(lines))
        result, _ = self.trace("access", "view", "a[1].fits", inject=["access:error=ENOENT"], check=False)
        self.assertIn(b"a[1].fits: cannot be opened safely: mount /proc", result.stderr)


class Streams(Folder):
    """Pipes, devices, signals."""

    def test_standard_output_is_the_picture_alone(self):
        self.do("view", "s/loop/sweep.fits", "--png=p.png")
        picture = read(self.path("p.png"))
        result = self.do("view", "s/loop/sweep.fits", "--png", "/dev/stdout")
        self.assertEqual(result.stdout, picture)
        self.assertEqual(result.stderr, b"wrote /dev/stdout\n")
        with open(self.path("q.png"), "wb") as file:
            file.write(b"before")
            file.flush()
            inode = os.fstat(file.fileno()).st_ino
            self.run_tool("view", "s/loop/sweep.fits", "--png", "/dev/stdout", capture_output=False, stdout=file,
                          stderr=subprocess.DEVNULL)
            self.assertEqual(os.stat(self.path("q.png")).st_ino, inode)
        self.assertEqual(read(self.path("q.png")), b"before" + picture)
        for stream in ("stdout", "stderr"):
            with open(self.path("r.png"), "wb") as file:  # under its own name
                self.run_tool("view", "s/loop/sweep.fits", "--png=r.png", "--json", capture_output=False,
                              **{"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, stream: file})
                self.assertEqual(os.stat(self.path("r.png")).st_ino, os.fstat(file.fileno()).st_ino, stream)
            self.assertEqual(read(self.path("r.png")), picture, stream)

    def test_pipes_are_read(self):
        expected = self.contents("s/slopes.fits")["s/slopes.fits"]
        with open(self.path("s/frame.fits"), "rb") as file:
            self.do("measure", "s", "/dev/stdin", "--output=a.fits", stdin=file)
        frame = read(self.path("s/frame.fits"))
        self.do("measure", "s", "/dev/stdin", "--output=b.fits", input=frame, stdin=None)
        os.mkfifo(self.path("fifo"))
        writer = threading.Thread(target=lambda: pathlib.Path(self.path("fifo")).write_bytes(frame))
        writer.start()
        self.do("measure", "s", "fifo", "--output=c.fits")
        writer.join()
        subprocess.run(["bash", "-c", '"$0" measure s <(cat s/frame.fits) --output d.fits', TOOL], cwd=self.folder,
                       check=True, stdout=subprocess.DEVNULL)
        lines = "".join(f"{k % 7},0\n" for k in range(1089)).encode()
        self.do("frame", "s", "--displacements=/dev/stdin", "--output=e.fits", input=lines, stdin=None)
        for name, content in self.contents("a.fits", "b.fits", "c.fits", "d.fits").items():
            self.assertEqual(content, expected, name)

    def test_pipes_are_written(self):
        self.do("view", "s/loop/sweep.fits", "--png=p.png")
        subprocess.run(["bash", "-c", '"$0" view s/loop/sweep.fits --png >(cat > q.png)', TOOL], cwd=self.folder,
                       check=True, stdout=subprocess.DEVNULL)
        os.mkfifo(self.path("fifo"))
        reader = subprocess.Popen(["sh", "-c", "sleep 0.3; cat fifo > r.png"], cwd=self.folder)
        self.do("view", "s/loop/sweep.fits", "--png=fifo")
        reader.wait(20)
        deadline = time.time() + 10
        while self.contents("q.png").get("q.png") != self.contents("p.png")["p.png"] and time.time() < deadline:
            time.sleep(0.05)
        self.assertEqual(*(self.contents(name)[name] for name in ("p.png", "q.png")))
        self.assertEqual(*(self.contents(name)[name] for name in ("p.png", "r.png")))
        self.assertTrue(stat.S_ISFIFO(os.stat(self.path("fifo")).st_mode))

    def test_closed_pipe(self):
        read, write = os.pipe()
        os.close(read)
        before = self.entries()
        text = self.refuses("frame", "s", "--png=/dev/stdout", "--output=f.fits", capture_output=False, stdout=write,
                            stderr=subprocess.PIPE)
        os.close(write)
        self.assertEqual(text, "quen-shs: cannot write /dev/stdout: Broken pipe\n")
        self.assertEqual(self.entries(), before)

    def test_without_end(self):
        for arguments in (["view", "/dev/zero", "--png=x"], ["measure", "s", "/dev/zero"],
                          ["frame", "s", "--displacements=/dev/zero"]):
            self.assertIn("/dev/zero: expected 256 MiB at most", self.refuses(*arguments))
        with open(self.path("long.csv"), "w", encoding="ascii") as file:
            file.truncate(17 << 20)
        self.assertIn("long.csv: expected a text of 16 MiB at most, found more",
                      self.refuses("frame", "s", "--displacements=long.csv"))
        with open(self.path("huge.fits"), "w", encoding="ascii") as file:
            file.truncate(5 << 30)
        self.assertIn("huge.fits: expected a file of 4 GiB at most, found more", self.refuses("view", "huge.fits"))

    def test_folders_as_inputs(self):
        self.assertIn("s: expected a file, found a folder", self.refuses("view", "s"))
        os.mkdir(self.path("c"))
        os.makedirs(self.path("c/data/M2S.fits"))
        for name in ("CM.fits", "shs_rois.fits"):
            shutil.copy(self.path("s/data/" + name), self.path("c/data/" + name))
        result = self.run_tool("check", "c")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"c/data/M2S.fits: expected a file, found a folder", result.stdout)

    def test_inputs_are_not_replaced(self):
        os.link(self.path("s/frame.fits"), self.path("same"))
        for arguments in (["measure", "s", "s/frame.fits", "--output=same"],
                          ["measure", "s", "s/frame.fits", "--truth=truth.fits", "--output=truth.fits"],
                          ["view", "s/frame.fits", "--png=s/frame.fits"],
                          ["view", "s/frame.fits", "--slopes=s/slopes.fits", "--png=s/slopes.fits"],
                          ["view", "s/frame.fits", "--calibration=s", "--png=s/data/CM.fits"],
                          ["frame", "s", "--displacements=truth.fits", "--truth=truth.fits"],
                          ["frame", "s", "--png=s/data/CM.fits"], ["score", "s", "--png=s/data/M2S.fits"],
                          ["loop", "s", "--disturbance=s/loop/telemetry.fits", "--frames=10"]):
            before = self.contents(*(entry for entry in self.entries() if os.path.isfile(self.path(entry))))
            self.assertIn("is the same file as", self.refuses(*arguments))
            self.assertEqual(self.contents(*before), before)

    def waits(self, arguments, end, code, **options):
        """Starts a command that waits, ends it by a signal, and returns how long that took."""
        process = subprocess.Popen([TOOL, *arguments], cwd=self.folder, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, **{"stdin": subprocess.DEVNULL, **options})
        time.sleep(0.5)
        self.assertIsNone(process.poll())
        process.send_signal(end)
        _, text = process.communicate(timeout=10)
        self.assertEqual(process.returncode, -code, text)
        self.assertEqual(text, b"quen-shs: interrupted; no file was written\n")

    def test_signals_end_waits(self):
        os.mkfifo(self.path("fifo"))
        before = self.entries()
        read, write = os.pipe()
        for end in (signal.SIGINT, signal.SIGTERM):
            self.waits(["view", "fifo", "--png=x.png"], end, end)
            self.waits(["view", "/dev/stdin", "--png=x.png"], end, end, stdin=read)
            self.waits(["view", "s/loop/sweep.fits", "--png=fifo"], end, end)
            self.waits(["frame", "s", f"--output=/dev/fd/{write}"], end, end, pass_fds=[write])
        self.assertEqual(self.entries(), before)

    def test_ignored_interrupts_stay_ignored(self):
        os.mkfifo(self.path("fifo"))
        process = subprocess.Popen([TOOL, "view", "fifo", "--png=p.png"], cwd=self.folder,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN))
        time.sleep(0.4)
        process.send_signal(signal.SIGINT)
        time.sleep(0.2)
        self.assertIsNone(process.poll())
        with open(self.path("fifo"), "wb") as file:
            file.write(read(self.path("s/frame.fits")))
        self.assertEqual(process.wait(20), 0)

    def test_few_descriptors(self):
        frame = ["frame", "s", "--shape=tip:1", "--output=a.fits", "--truth=b.fits"]
        self.do(*frame)
        whole = self.contents("a.fits", "b.fits")
        done = 0
        for limit in range(4, 20):
            for name in whole:
                os.unlink(self.path(name))

            def few(limit=limit):
                resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))
            result = self.run_tool(*frame, preexec_fn=few)
            found = self.contents(*whole)
            self.assertEqual(found, whole if result.returncode == 0 else {}, (limit, result.stderr))
            done += result.returncode == 0
            for name in whole:
                with open(self.path(name), "ab"):
                    pass
        self.assertGreater(done, 5)

    def test_few_descriptors_are_no_verdict(self):
        ends = set()
        for limit in range(4, 12):
            def few(limit=limit):
                resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))
            result = self.run_tool("check", "s", preexec_fn=few)
            ends.add(result.returncode)
            self.assertNotIn(b"WRONG", result.stdout, limit)
            self.assertNotIn(b"trusted", result.stderr, limit)
        self.assertEqual(ends, {0, 1})

    def test_size_limit(self):
        def little():
            resource.setrlimit(resource.RLIMIT_FSIZE, (8192, 8192))
        before = self.contents("s/frame.fits")
        text = self.refuses("frame", "s", "--shape=tip:2", preexec_fn=little)
        self.assertEqual(text, "quen-shs: cannot write s/frame.fits: File too large\n")
        self.assertEqual(self.contents("s/frame.fits"), before)
        text = self.refuses("measure", "s", "/dev/stdin", stdin=None, input=read(self.path("s/frame.fits")),
                            preexec_fn=little)
        self.assertEqual(text, "quen-shs: /dev/stdin: cannot be read: File too large\n")
        self.assertEqual([entry for entry in self.entries() if LEFTOVER.search(entry)], [])

    def test_closed_standard_descriptors(self):
        for closed in ("0<&-", "1>&-", "2>&-", "0<&- 1>&- 2>&-"):
            subprocess.run(["sh", "-c", f'"$0" frame s --shape tip:1 --noise 0 --output a.fits {closed}', TOOL],
                           cwd=self.folder, check=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            subprocess.run([TOOL, "frame", "s", "--shape=tip:1", "--noise=0", "--output=b.fits"], cwd=self.folder,
                           check=True, stdout=subprocess.DEVNULL)
            self.assertEqual(*self.contents("a.fits", "b.fits").values())
            os.unlink(self.path("a.fits"))


class Damaged(Folder):
    """Headers that declare more than there is cost nothing."""

    def refuses_in_little_memory(self, *arguments):
        def little():
            resource.setrlimit(resource.RLIMIT_DATA, (400 << 20, 400 << 20))
        sanitized = b"__asan" in read(TOOL) or b"__tsan" in read(TOOL)
        text = self.refuses(*arguments, **({} if sanitized else {"preexec_fn": little}))
        self.assertNotIn("bad_alloc", text)
        return text

    def write(self, name, *parts):
        with open(self.path(name), "wb") as file:
            for part in parts:
                file.write(part)

    def test_images(self):
        start = ["SIMPLE  =                    T"]
        for bits in (16, -64):
            image = [*start, f"BITPIX  = {bits:20}", "NAXIS   =                    2"]
            for first, second in ((30000, 30000), (10**9, 10**8), (52, 10**9), (2**31, 2**31)):
                self.write("x.fits", header(*image, f"NAXIS1  = {first:20}", f"NAXIS2  = {second:20}"))
                for arguments in (["view", "x.fits"], ["measure", "s", "x.fits"],
                                  ["loop", "s", "--disturbance=x.fits"]):
                    text = self.refuses_in_little_memory(*arguments)
                    self.assertIn("x.fits", text)
        self.write("x.fits", header(*start, "BITPIX  =                   16", "NAXIS   =                    2",
                                    "NAXIS1  =               100000", "NAXIS2  =                    1"),
                   bytes(200160))
        self.assertIn("expected 1 to 8000 pixels", self.refuses_in_little_memory("view", "x.fits"))

    def test_tables(self):
        primary = header("SIMPLE  =                    T", "BITPIX  =                    8",
                         "NAXIS   =                    0", "EXTEND  =                    T")
        for name, columns in (("telemetry", [("disturbance", "52D"), ("correction", "52D"), ("residual", "52D")]),
                              ("sweep", [("gain", "D"), ("residual_rms", "D"), ("disturbance_rms", "D"),
                                         ("frames", "D")]),
                              ("scores", [("engine", "70A"), ("noise", "D")]), ("slopes", [("x", "D"), ("y", "D")]),
                              ("rois", [("x_low", "U")])):
            for width in (None, 0):
                sizes = {"D": 8, "52D": 416, "70A": 70, "U": 2}
                row = sum(sizes[form] for _, form in columns) if width is None else 0
                forms = [(column, form if width is None else "0D") for column, form in columns]
                cards = ["XTENSION= 'BINTABLE'", "BITPIX  =                    8", "NAXIS   =                    2",
                         f"NAXIS1  = {row:20}", f"NAXIS2  = {10**12:20}", "PCOUNT  =                    0",
                         "GCOUNT  =                    1", f"TFIELDS = {len(columns):20}", f"EXTNAME = '{name}'"]
                for k, (column, form) in enumerate(forms, 1):
                    cards += [f"TTYPE{k}  = '{column}'", f"TFORM{k}  = '{form}'"]
                self.write("x.fits", primary, header(*cards))
                for arguments in (["view", "x.fits"], ["frame", "s", "--displacements=x.fits"],
                                  ["loop", "s", "--disturbance=x.fits"]):
                    self.refuses_in_little_memory(*arguments)
                if name == "rois":
                    shutil.copy(self.path("x.fits"), self.path("s/data/shs_rois.fits"))
                    self.assertIn("s/data/shs_rois.fits", self.refuses_in_little_memory("frame", "s"))
                    self.refuses_in_little_memory("check", "s")

    def test_messages_have_the_users_name_and_nothing_older(self):
        data = read(self.path("s/slopes.fits"))
        self.write("x.fits", data.replace(b"'y       '", b"'z       '"))
        text = self.refuses("frame", "s", "--displacements=x.fits")
        self.assertEqual(text, "quen-shs: ReadColumnOrThrow: misconfigured column: y\n")
        shutil.copy(self.path("s/data/shs_rois.fits"), self.path("s/data/M2S.fits"))
        text = self.refuses("frame", "s")
        self.assertNotIn("/proc/self/fd", text)
        self.write("s/data/M2S.fits", b"SIMPLE  =                    T", b" " * 50, b"BITPIX  = nonsense")
        text = self.refuses("frame", "s")
        self.assertNotIn("/proc/self/fd", text)
        self.assertIn("s/data/M2S.fits", text)


class Kills(Folder):
    """Runs that are killed at any moment."""

    def test_files_are_whole_or_as_before(self):
        names = ["k/" + name for name in ("frame.fits", "slopes.fits", "telemetry.fits", "loop.png")]
        loop = ["loop", "s", "--frames=10", "--folder=k"]
        started = time.monotonic()
        self.do(*loop, "--seed=1")
        length = time.monotonic() - started
        one = self.contents(*names)
        self.do(*loop, "--seed=2")
        other = self.contents(*names)
        chance = random.Random(7)
        for kill in range(int(os.environ.get("QUEN_KILLS", "24"))):
            process = subprocess.Popen([TOOL, *loop, f"--seed={1 + kill % 2}"], cwd=self.folder,
                                       stdout=subprocess.DEVNULL)
            try:
                process.wait(chance.uniform(0.3, 1.1) * length)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
            for name, content in self.contents(*names).items():
                self.assertTrue(content in (one[name], other[name]), (kill, name))
            self.assertLessEqual({entry for entry in os.listdir(self.path("k")) if not LEFTOVER.fullmatch(entry)},
                                 {os.path.basename(name) for name in names})
        self.do(*loop, "--seed=1")
        self.assertEqual(self.contents(*names), one)
        self.assertEqual(len(os.listdir(self.path("k"))), 4)


if __name__ == "__main__":
    TOOL = os.path.abspath(sys.argv.pop(1))
    unittest.main()
