"""Streams: between Python, the tool, and a reader that has nothing of ours."""

import json
import os
import pathlib
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
from astropy.io import fits

import quen_shs
from quen_shs import Stream

PLAIN = pathlib.Path(__file__).parents[2] / "stream" / "test" / "plain_stream.py"
DTYPES = ["uint8", "int8", "uint16", "int16", "uint32", "int32", "uint64", "int64", "float32", "float64"]
OTHERS = ["complex64", "complex128", "float16"]
SHAPES = [(5,), (3, 4), (2, 3, 4)]


@pytest.fixture(autouse=True)
def folder(tmp_path, monkeypatch):
    """Where the streams are."""
    monkeypatch.setenv("MILK_SHM_DIR", str(tmp_path))
    return tmp_path


def frame_of(shape, dtype, seed=1):
    """Any bits, extremes among them."""
    frame = np.random.default_rng(seed).integers(0, 256, (*shape, np.dtype(dtype).itemsize), "uint8")
    return np.nan_to_num(frame.view(dtype)[..., 0])


class Publishing:
    """Frames from a thread, one in two milliseconds."""

    def __init__(self, writer, frames):
        self.writer, self.frames, self.is_over = writer, frames, threading.Event()
        self.thread = threading.Thread(target=self.run)

    def run(self):
        k = 0
        while not self.is_over.wait(0.002):
            self.writer.publish(self.frames[k % len(self.frames)])
            k += 1

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.is_over.set()
        self.thread.join()


# --- What goes in comes out


@pytest.mark.parametrize("dtype", DTYPES + OTHERS)
@pytest.mark.parametrize("shape", SHAPES)
def test_frames_of_any_type_and_shape_come_as_they_went(dtype, shape):
    with Stream.create("test", shape, dtype) as writer, Stream("test") as stream:
        assert (stream.shape, stream.dtype) == (shape, np.dtype(dtype)) == (writer.shape, writer.dtype)
        frame = frame_of(shape, dtype)
        writer.publish(frame)
        found = stream.read()
        assert found.dtype == frame.dtype and found.tobytes() == frame.tobytes()


def test_keywords_times_and_counters():
    keywords = {"FRAME": 0, "GAIN": (0.5, "of the loop"), "WHERE": "here"}
    with Stream.create("test", 3, "int16", keywords=keywords) as writer, Stream("test") as stream:
        assert stream.keywords == {"FRAME": 0, "GAIN": 0.5, "WHERE": "here"} == writer.keywords
        assert stream.comments == {"FRAME": "", "GAIN": "of the loop", "WHERE": ""}
        assert (stream.count, stream.frame_count) == (0, 0)
        before = time.clock_gettime_ns(time.CLOCK_TAI)
        writer.publish(np.zeros(3, "int16"), acquired=12_000_000_345, FRAME=np.int32(7), GAIN=1)
        stream.read()
        assert stream.keywords == {"FRAME": 7, "GAIN": 1.0, "WHERE": "here"}
        assert (stream.count, stream.frame_count, stream.acquired) == (1, 1, 12_000_000_345)
        assert before <= stream.written <= time.clock_gettime_ns(time.CLOCK_TAI)
        writer.publish(np.zeros(3, "int16"))
        stream.read()
        assert before <= stream.acquired <= stream.written
        assert stream.keywords["FRAME"] == 7


def test_a_plain_reader_reads_what_is_published():
    with Stream.create("test", (3, 5), "int16", keywords={"FRAME": (2, "counted from 0")}) as writer:
        writer.publish(np.arange(15, dtype="int16").reshape(3, 5), FRAME=9)
        described = subprocess.run([sys.executable, PLAIN, "describe", writer.path], text=True, stdout=subprocess.PIPE)
    assert described.returncode == 0
    assert "\naxes 2 5 3 0\n" in described.stdout
    assert "\nkeyword FRAME L 9 1 counted from 0\n" in described.stdout
    assert "\npixels 0 1 14\n" in described.stdout


def test_a_plain_makers_stream_is_read(folder):
    subprocess.run([sys.executable, PLAIN, "make", folder / "foreign.im.shm"], check=True)
    with Stream("foreign") as stream:
        assert (stream.shape, stream.dtype, stream.count) == ((3, 4), np.dtype("float32"), 7)
        assert stream.read().ravel().tolist() == [0.5 * k for k in range(12)]
        assert stream.keywords == {"GAIN": 0.25}
        assert stream.acquired == 1234_000_005_678


# --- Waiting


def test_waiting_ends_with_the_next_frame_or_the_time():
    with Stream.create("test", 3, "uint8") as writer, Stream("test") as stream:
        begin = time.monotonic()
        assert not stream.wait(timeout=0.05)
        assert 0.05 <= time.monotonic() - begin < 5.0
        timer = threading.Timer(0.05, writer.publish, [np.ones(3, "uint8")])
        timer.start()
        assert stream.wait(timeout=30.0)
        timer.join()
        assert stream.wait(timeout=0), "it has not been read"
        stream.read()
        assert not stream.wait(timeout=0)


def test_frames_are_recorded_one_by_one():
    frames = np.arange(256, dtype="uint8")[:, np.newaxis] * np.ones(4, "uint8")
    with Stream.create("test", 4, "uint8") as writer, Stream("test") as stream, Publishing(writer, frames):
        cube = stream.record(40)
    assert cube.shape == (40, 4)
    assert (cube == cube[:, :1]).all(), "none is torn"
    assert np.diff(cube[:, 0].astype(int)).sum() == 39 + stream.lost


def test_missed_frames_are_counted():
    with Stream.create("test", 1, "uint8") as writer, Stream("test") as stream:
        for frames in (1, 4):
            for _ in range(frames):
                writer.publish(np.zeros(1, "uint8"))
            stream.read()
        assert stream.lost == 3
        with pytest.raises(TimeoutError, match="^stream test: no frame has come for 0.02 s$"):
            stream.record(1, timeout=0.02)


def test_other_threads_go_on_while_one_waits():
    with Stream.create("test", 1, "uint8"), Stream("test") as stream:
        interval = sys.getswitchinterval()
        sys.setswitchinterval(1000.0)  # so that nothing else makes a thread hand over the lock
        called, got_it = threading.Event(), []
        thread = threading.Thread(target=lambda: (called.wait(), got_it.append(True)))
        try:
            thread.start()
            called.set()
            stream.wait(timeout=0.1)
            assert got_it
        finally:
            sys.setswitchinterval(interval)
            thread.join()


def test_a_stream_serves_one_thread():
    with Stream.create("test", 1, "uint8") as writer, Stream("test") as stream:
        thread = threading.Thread(target=stream.wait)
        thread.start()
        time.sleep(0.05)
        with pytest.raises(RuntimeError, match="^Stream: is in use by another call; give each thread one of its own$"):
            stream.wait(0)
        writer.publish(np.zeros(1, "uint8"))
        thread.join()


@pytest.mark.parametrize("job", ["stream.wait()", "stream.record(10)"])
def test_ctrl_c_ends_a_wait(job):
    script = f"""
import signal, quen_shs
signal.signal(signal.SIGINT, signal.default_int_handler)
with quen_shs.Stream.create("mine", 1, "uint8"), quen_shs.Stream("mine") as stream:
    print("ready", flush=True)
    {job}
"""
    process = subprocess.Popen([sys.executable, "-c", script], text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert process.stdout.readline() == "ready\n"
    time.sleep(0.1)
    process.send_signal(signal.SIGINT)
    _, errors = process.communicate(timeout=10)
    assert process.returncode == -signal.SIGINT
    assert errors.splitlines()[-1] == "KeyboardInterrupt"


def test_the_interpreter_ends_while_a_thread_waits(child):
    script = """
import threading, time, quen_shs
writer = quen_shs.Stream.create("mine", 1, "uint8")
stream = quen_shs.Stream("mine")
threading.Thread(target=stream.wait, daemon=True).start()
time.sleep(0.1)
print("done", flush=True)
"""
    result = child(script)
    assert (result.stdout, result.stderr, result.returncode) == ("done\n", "", 0)


# --- Ends


def test_a_closed_stream_is_gone(folder):
    writer = Stream.create("test", 1, "uint8")
    with Stream("test") as stream:
        assert not stream.is_replaced
        writer.close()
        assert stream.is_replaced
        assert list(folder.iterdir()) == []
    for ask in (stream.wait, stream.read, lambda: stream.count, lambda: writer.publish(np.zeros(1, "uint8"))):
        with pytest.raises(ValueError, match="^Stream: is closed$"):
            ask()
    stream.close()


def test_what_is_wrong_is_said(folder):
    with pytest.raises(FileNotFoundError, match=f"^there is no stream {folder}/none.im.shm$"):
        Stream("none")
    with pytest.raises(ValueError, match="^the name of a stream must have 1 to 79 bytes"):
        Stream("a/b")
    with pytest.raises(TypeError, match="^name: expected a word, found 3$"):
        Stream(3)
    (folder / "text.im.shm").write_text("x" * 1000)
    with pytest.raises(OSError, match="is a stream of another layout|is no stream of layout"):
        Stream("text")
    with pytest.raises(ValueError, match="^dtype: expected whole numbers of 8 to 64 bits, .* found bool$"):
        Stream.create("test", 1, bool)
    with pytest.raises(ValueError, match="^size must have 1 to 3 axes, found 4$"):
        Stream.create("test", (1, 1, 1, 1), "uint8")
    with pytest.raises(ValueError, match="^the name of a keyword must have 1 to 15 bytes"):
        Stream.create("test", 1, "uint8", keywords={"A" * 16: 1})
    with Stream.create("test", (2, 3), "int16", keywords={"FRAME": 0, "WHERE": "here"}) as writer:
        with pytest.raises(OSError, match="^a living program writes the stream"):
            Stream.create("test", 1, "uint8")
        for frame, kind, text in (
            (np.zeros((2, 3), "uint16"), TypeError, "^frame: expected int16, found uint16$"),
            (np.zeros((3, 2), "int16"), ValueError, r"^frame: expected the shape \(2, 3\), found \(3, 2\)$"),
        ):
            with pytest.raises(kind, match=text):
                writer.publish(frame)
        for keywords, kind, text in (
            ({"NOISE": 1.0}, ValueError, "^NOISE: expected one of the keywords FRAME, WHERE$"),
            ({"FRAME": 1.5}, TypeError, "^FRAME: expected a whole number, found 1.5$"),
            ({"WHERE": 1}, TypeError, "^WHERE: expected a word, found 1$"),
            ({"WHERE": "x" * 17}, ValueError, "^the text of keyword WHERE must have 0 to 16 bytes"),
        ):
            with pytest.raises(kind, match=text):
                writer.publish(np.zeros((2, 3), "int16"), **keywords)
        assert writer.count == 0 and writer.keywords == {"FRAME": 0, "WHERE": "here"}


def test_a_frame_that_its_writer_left_half_done_is_not_read(folder):
    with Stream.create("test", 3, "uint8") as writer, Stream("test") as stream:
        with open(writer.path, "r+b") as file:
            file.seek(288)
            file.write(b"\1")
        with pytest.raises(TimeoutError, match="^stream test: no whole frame within 1 s$"):
            stream.read()


def test_any_layout_in_memory_is_published_row_by_row():
    frame = np.arange(24, dtype="int32").reshape(4, 6)
    with Stream.create("test", (6, 4), "int32") as writer, Stream("test") as stream:
        writer.publish(frame.T)
        assert (stream.read() == frame.T).all()
        writer.publish(np.arange(48, dtype="int32").reshape(6, 8)[:, ::2])
        assert stream.read()[1].tolist() == [8, 10, 12, 14]


def test_frames_are_published_in_the_order_of_bytes_that_they_are_read_in():
    with Stream.create("test", 3, ">u2") as writer, Stream("test") as stream:
        writer.publish(np.array([1, 2, 3], "uint16"))
        assert stream.read().tolist() == [1, 2, 3]
        with pytest.raises(TypeError, match="^frame: expected uint16, found >u2$"):
            writer.publish(np.array([1, 2, 3], ">u2"))


# --- The tool beside


@pytest.mark.parametrize("dtype", DTYPES)
def test_watch_records_what_is_published(dtype, folder, tool):
    shape = SHAPES[DTYPES.index(dtype) % 3]
    frames = [frame_of(shape, dtype, seed) for seed in range(7)]
    with Stream.create("test", shape, dtype) as writer, Publishing(writer, frames):
        tool("watch", "test", "--frames", 4, "--record", folder / "cube.fits")
    with fits.open(folder / "cube.fits", checksum=True) as file:
        file.verify("exception")
        cube, rows = file[0].data, file["frames"].data
        assert file[0].header["STREAM"] == "test"
    assert cube.dtype.newbyteorder("=") == np.dtype(dtype)
    for frame, count in zip(cube, rows["count"], strict=True):
        assert (frame == frames[(int(count) - 1) % 7]).all()
    assert (rows["written"] >= rows["acquired"]).all()


def test_watch_tells_repeated_and_torn_frames(tool):
    rng = np.random.default_rng(1)
    with Stream.create("test", (20, 30), "int16", keywords={"FRAME": 0}) as writer:
        watching = subprocess.Popen(
            [os.environ["QUEN_SHS"], "watch", "test", "--frames", "20", "--json"], text=True, stdout=subprocess.PIPE
        )
        taken = Stream("test")
        time.sleep(0.5)
        frame = np.zeros((20, 30), "int16")
        for k in range(20):
            before, frame = frame, rng.integers(0, 100, (20, 30), "int16")
            if k == 10:
                frame = before
            if k == 15:
                frame[7:] = before[7:]
            writer.publish(frame, FRAME=k if k < 18 else k + 2)
            time.sleep(0.02)
        found = json.loads(watching.communicate(timeout=30)[0])
        taken.close()
    assert [found[key] for key in ("frames", "lost", "repeated", "torn", "unpublished", "misnumbered")] == [
        20, 0, 1, 1, 2, 0,
    ]  # fmt: skip


def test_a_loop_is_closed_through_streams(sensor, sim):
    """The tool is the controller; frames wait for it, so that this is a loop with a delay of 1."""
    disturbance = quen_shs.turbulence(sim, 20)
    expected = quen_shs.run_loop(sim, disturbance, gain=0.4, seed=3)
    sim.seed(3)
    used = np.flatnonzero(sim.rois_used)[:607]
    residuals, corrections = [], np.zeros(52)
    with Stream.create("frames", (816, 840), "int16", keywords={"FRAME": 0}) as writer:
        controller = subprocess.Popen(
            [os.environ["QUEN_SHS"], "loop", sensor, "--through", "frames", "--corrections", "modes", "--frames", "20",
             "--gain", "0.4"], stdout=subprocess.PIPE, text=True,
        )  # fmt: skip
        modes = None
        for frame, modes_now in enumerate(disturbance):
            residuals.append(modes_now - corrections)
            slopes = sim.m2s @ residuals[-1]
            dx, dy = np.zeros(1089), np.zeros(1089)
            dy[used], dx[used] = slopes[:607], slopes[607:]
            writer.publish(sim.compute_frame(dx, dy, noise=10.0).view("int16"), FRAME=frame)
            while modes is None:
                try:
                    modes = Stream("modes")
                except FileNotFoundError:
                    time.sleep(0.01)
            assert modes.wait(timeout=30.0)
            corrections = modes.read()
            assert modes.keywords == {"FRAME": frame}
        printed = controller.communicate(timeout=30)[0]
    assert np.allclose(residuals, expected.residual, atol=1e-9)
    assert printed.startswith("frames                  20 of stream frames (gain 0.4, centre-of-gravity)\n")
