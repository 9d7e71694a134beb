#!/usr/bin/env python3
"""The camera of a server, taken from by Aravis' own client.

    gige_frames.py QUEN_SHS [TEST...]
    gige_frames.py GIGE_RATE --measure RATE SECONDS   how many frames a client gets, in packets of 65 000 bytes

Both run in a network namespace of their own, with the loopback device alone. Where that cannot be made, or Aravis is
not there for Python, or the tool has no camera, the test is skipped (77).
"""

import contextlib
import json
import mmap
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "stream" / "test"))
import plain_stream  # pylint: disable=wrong-import-position

SKIPPED = 77
INSIDE = "QUEN_IN_NAMESPACE"
ADDRESS = "127.0.0.1"
PIXELS = (816, 840)
LIMIT = 60.0  # seconds
TOOL = ""


def go_inside():
    """Runs this script in a namespace of its own."""
    if os.environ.get(INSIDE):
        return
    shell = 'ip link set lo up && exec "$@"'
    enter = ["unshare", "--user", "--map-root-user", "--net", "sh", "-c", shell, "sh"]
    try:
        possible = subprocess.run([*enter, "true"], capture_output=True, check=False).returncode == 0
    except FileNotFoundError:
        possible = False
    if not possible:
        print("skipped: no network namespace can be made here")
        sys.exit(SKIPPED)
    os.environ[INSIDE] = "1"
    os.execvp(enter[0], [*enter, sys.executable, *sys.argv])


def aravis():
    """Aravis for Python."""
    try:
        import gi  # pylint: disable=import-outside-toplevel
        gi.require_version("Aravis", "0.8")
        from gi.repository import Aravis  # pylint: disable=import-outside-toplevel,no-name-in-module
        return Aravis
    except (ImportError, ValueError):
        print("skipped: Python has no Aravis (python3-gi, gir1.2-aravis-0.8)")
        return sys.exit(SKIPPED)


class Client:
    """A program that takes frames from the camera."""

    def __init__(self, packet=None, buffers=16):
        self.library = aravis()
        self.camera = self.library.Camera.new(ADDRESS)
        if packet:
            self.camera.gv_set_packet_size_adjustment(self.library.GvPacketSizeAdjustment.NEVER)
            self.camera.gv_set_packet_size(packet)
        self.camera.set_acquisition_mode(self.library.AcquisitionMode.CONTINUOUS)
        self.stream = self.camera.create_stream(None, None)
        for _ in range(buffers):
            self.stream.push_buffer(self.library.Buffer.new_allocate(self.camera.get_payload()))
        self.camera.start_acquisition()

    def frame(self, seconds=10.0):
        """The next one; None if none comes."""
        buffer = self.stream.timeout_pop_buffer(int(seconds * 1e6))
        if buffer is None:
            return None
        if buffer.get_status() != self.library.BufferStatus.SUCCESS:
            raise AssertionError(buffer.get_status())
        if buffer.get_image_pixel_format() != self.library.PIXEL_FORMAT_MONO_16:
            raise AssertionError("no Mono16")
        size = (buffer.get_image_height(), buffer.get_image_width())
        pixels = np.frombuffer(buffer.get_data(), "<u2").reshape(size).copy()
        self.stream.push_buffer(buffer)
        return pixels

    def leave(self):
        self.camera.stop_acquisition()
        del self.stream, self.camera


class Camera(unittest.TestCase):
    """What a client gets."""

    @classmethod
    def setUpClass(cls):
        # pylint: disable=consider-using-with
        cls.temporary = tempfile.TemporaryDirectory()
        cls.folder = pathlib.Path(cls.temporary.name)
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
    def start(self, *arguments, address=ADDRESS):
        """A server with a camera, once frames come."""
        with subprocess.Popen([TOOL, "serve", str(self.sensor), "--stream", "wfs", "--gige", address, "--photons",
                               "3000", "--pedestal", "100", "--seed", "5", "--amplitude", "20", *arguments],
                              env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True) as process:
            try:
                end = time.monotonic() + LIMIT
                while not self.is_served() and process.poll() is None and time.monotonic() < end:
                    time.sleep(0.005)
                yield process
            finally:
                process.kill()

    def is_served(self):
        try:
            return plain_stream.field(self.stream.read_bytes()[:384], 264, "Q") > 0
        except (FileNotFoundError, IndexError, OSError):
            return False
        except Exception as error:  # pylint: disable=broad-except
            if type(error).__name__ == "error":  # of struct: the file is being made
                return False
            raise

    @staticmethod
    def end(process):
        process.send_signal(signal.SIGTERM)
        out, err = process.communicate(timeout=LIMIT)
        return json.loads(out), err

    @contextlib.contextmanager
    def truth(self):
        """All frames of the stream, by cnt0, as they come into it."""
        frames, end = {}, threading.Event()

        def collect():
            with open(self.stream, "r+b") as file:
                data = mmap.mmap(file.fileno(), 0)
            while not end.is_set():
                count, write = plain_stream.field(data, 264, "Q"), data[288]
                if count not in frames and not write:
                    pixels = np.frombuffer(data, "<u2", PIXELS[0] * PIXELS[1], 384).reshape(PIXELS).copy()
                    if not data[288] and plain_stream.field(data, 264, "Q") == count:
                        frames[count] = pixels
                time.sleep(0.001)

        thread = threading.Thread(target=collect)
        thread.start()
        try:
            yield frames
        finally:
            end.set()
            thread.join()

    def require_run(self, seen, truth):
        """All of these are true frames, one after the other; the first one's cnt0."""
        firsts = [count for count, pixels in truth.items() if np.array_equal(pixels, seen[0])]
        self.assertEqual(len(firsts), 1)
        for k, pixels in enumerate(seen):
            np.testing.assert_array_equal(pixels, truth[firsts[0] + k])
        return firsts[0]

    def test_all_frames_arrive(self):
        with self.start("--rate", "25", "--frames", "80", "--json") as process, self.truth() as truth:
            client = Client()
            seen = []
            while (frame := client.frame(2.0)) is not None:
                seen.append(frame)
            out, err = process.communicate(timeout=LIMIT)
            self.assertEqual(err, "")
        report = json.loads(out)
        self.assertGreater(len(seen), 40)
        self.assertEqual(self.require_run(seen, truth) + len(seen) - 1, report["published"])
        self.assertEqual(report["gige"], {"sent": len(seen), "left_out": 0})

    def test_client_comes_again(self):
        with self.start("--rate", "25", "--json") as process, self.truth() as truth:
            last = 0
            for _ in range(3):
                client = Client()
                seen = [client.frame() for _ in range(5)]
                first = self.require_run(seen, truth)
                self.assertGreater(first, last)
                last = first + 4
                client.leave()
            report, _ = self.end(process)
            self.assertEqual(report["gige"]["left_out"], 0)

    def test_pause(self):
        faults = self.shm / "faults.json"
        faults.write_text(json.dumps([{"frame": 60, "kind": "pause", "milliseconds": 1500}]), encoding="utf-8")
        with self.start("--rate", "25", "--frames", "125", "--faults", str(faults), "--json") as process, \
                self.truth() as truth:
            client = Client()
            gaps, seen, before = [], [], time.monotonic()
            while (frame := client.frame(4.0)) is not None:
                gaps.append(time.monotonic() - before)
                before = time.monotonic()
                seen.append(frame)
            out, _ = process.communicate(timeout=LIMIT)
        self.assertEqual(json.loads(out)["gige"], {"sent": len(seen), "left_out": 0})
        self.assertGreater(max(gaps[1:]), 1.3)
        self.require_run(seen, truth)

    def test_discovery(self):
        with self.start("--rate", "25", "--json") as process:
            library = aravis()
            library.update_device_list()
            found = [(library.get_device_vendor(k), library.get_device_model(k), library.get_device_serial_nbr(k))
                     for k in range(library.get_n_devices())]
            self.assertIn(("quen", "quen-shs", "wfs"), found)
            # All of its sockets are the loopback device's.
            sockets = subprocess.run(["ss", "--udp", "--listening", "--numeric", "--processes"], capture_output=True,
                                     text=True, check=True).stdout.splitlines()
            own = [line.split()[3] for line in sockets if f"pid={process.pid}," in line]
            self.assertGreater(len(own), 0)
            self.assertEqual([name for name in own if "%lo:" not in name], [])
            self.end(process)

    def test_refusals(self):
        for arguments, sentence in (
                ([], "--gige: expected a detector (--detector, or a parameter of one such as --pedestal) and pixels of "
                     "uint16, found no detector; pixels of GigE Vision (Mono16) have no sign, and there is no format "
                     "for those below zero"),
                (["--photons", "100", "--type", "int16"],
                 "--gige: expected a detector (--detector, or a parameter of one such as --pedestal) and pixels of "
                 "uint16, found int16; pixels of GigE Vision (Mono16) have no sign, and there is no format for those "
                 "below zero")):
            result = self.tool("serve", str(self.sensor), "--stream", "wfs", "--gige", ADDRESS, *arguments,
                               env=self.environment, check=False)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (1, "", f"quen-shs: {sentence}\n"))
        elsewhere = self.tool("serve", str(self.sensor), "--stream", "wfs", "--photons", "100", "--gige", "203.0.113.5",
                              env=self.environment, check=False)
        self.assertEqual((elsewhere.returncode, elsewhere.stderr),
                         (1, "quen-shs: --gige: expected the address of one of this machine's network interfaces, "
                             "without another camera (UDP port 3956), found 203.0.113.5\n"))
        self.assertEqual(os.listdir(self.shm), [])
        with self.start("--rate", "25") as process:
            second = self.tool("serve", str(self.sensor), "--stream", "other", "--photons", "100", "--gige", ADDRESS,
                               env=self.environment, check=False)
            self.assertEqual(second.returncode, 1)
            self.assertIn("without another camera", second.stderr)
            process.terminate()
            process.communicate()


def measure(rate, seconds):
    """Prints what a client gets of ready frames that come at a rate."""
    with subprocess.Popen([TOOL, str(rate), str(seconds)], stdout=subprocess.PIPE, text=True) as process:
        time.sleep(0.5)
        client = Client(packet=65000, buffers=64)
        count = failed = 0
        begin = last = time.monotonic()
        while process.poll() is None or time.monotonic() < last + 0.5:
            buffer = client.stream.timeout_pop_buffer(100000)
            if buffer is None:
                continue
            last = time.monotonic()
            whole = buffer.get_status() == client.library.BufferStatus.SUCCESS
            count += whole
            failed += not whole
            client.stream.push_buffer(buffer)
        out = process.communicate()[0].strip()
    print(f"{out}; in packets of 65000 bytes {count} came whole, {failed} did not: {count / (last - begin):.1f} a second")


if __name__ == "__main__":
    sys.argv[1] = os.path.abspath(sys.argv[1])
    go_inside()
    aravis()
    TOOL = sys.argv.pop(1)
    if sys.argv[1:2] == ["--measure"]:
        measure(float(sys.argv[2]), float(sys.argv[3]))
    else:
        unittest.main()
