#!/usr/bin/env python3
"""Reads and makes stream files with nothing but mmap and struct, from the table of the layout.

    plain_stream.py describe FILE       what the file says, a line each; exit 1 where its size is not the sum of its parts
    plain_stream.py make FILE           a stream of another maker: floats, a ring of past frames, image type 2
    plain_stream.py watch FILE FRAMES   polls until so many frames were read whole; prints cnt0 and the first pixel of each
"""

import mmap
import os
import struct
import sys
import time

FORMATS = {3: "H", 4: "h", 9: "f", 10: "d"}
SIZES = {1: 1, 2: 1, 3: 2, 4: 2, 5: 4, 6: 4, 7: 8, 8: 8, 9: 4, 10: 8, 11: 8, 12: 16, 13: 2}


def field(data, offset, kind, count=1):
    values = struct.unpack_from("<" + str(count) + kind, data, offset)
    return values[0] if count == 1 else list(values)


def text(raw):
    return raw.split(b"\0")[0].decode()


def rounded(size):
    return -(-size // 8) * 8


def parts(data):
    """Where each part begins, and the size of the file."""
    sem, traces, keywords = field(data, 258, "H"), field(data, 260, "H"), field(data, 290, "H")
    pixels, past = field(data, 312, "Q"), field(data, 292, "I")
    sizes = {
        "metadata": 384,
        "pixels": pixels,
        "keywords": 128 * keywords,
        "semaphores": 32 * sem,
        "log semaphore": 32,
        "semReadPID": 4 * sem,
        "semWritePID": 4 * sem,
        "semctrl": 4 * sem,
        "semstatus": 4 * sem,
        "process trace": 64 * traces,
    }
    if past:
        sizes["past metadata"] = 48 * past
        sizes["past pixels"] = pixels * past
    begin, at = {}, 0
    for name, size in sizes.items():
        begin[name] = at
        at += rounded(size)
    return begin, at


def describe(path):
    with open(path, "r+b") as file:
        data = mmap.mmap(file.fileno(), 0)
    begin, size = parts(data)
    sem = field(data, 258, "H")
    print("version", text(data[0:32]))
    print("name", text(data[32:112]))
    print("axes", field(data, 112, "B"), *field(data, 116, "I", 3))
    print("elements", field(data, 128, "Q"))
    print("type", field(data, 136, "B"))
    print("imagetype", field(data, 144, "Q"))
    print("created within a minute", abs(field(data, 152, "q") - time.clock_gettime(time.CLOCK_TAI)) < 60)
    print("acquired", field(data, 184, "q"), field(data, 192, "q"))
    print("written within a minute", abs(field(data, 200, "q") - time.clock_gettime(time.CLOCK_TAI)) < 60)
    print("creator", field(data, 216, "i"), "owner", field(data, 220, "i"))
    print("shared", field(data, 224, "B"), "location", field(data, 240, "b"), "status", field(data, 241, "B"))
    print("inode is the file's", field(data, 232, "Q") == os.stat(path).st_ino)
    print("flag", field(data, 248, "Q"), "logflag", field(data, 256, "B"))
    print("sem", sem, "traces", field(data, 260, "H"))
    print("counters", *field(data, 264, "Q", 3))
    print("write", field(data, 288, "B"), "keywords", field(data, 290, "H"))
    print("ring", *field(data, 292, "I", 2), field(data, 304, "Q"))
    print("imdatamemsize", field(data, 312, "Q"))
    print("graphics", set(data[320:384]))
    for i in range(field(data, 290, "H")):
        at = begin["keywords"] + 128 * i
        kind = chr(data[at + 16])
        raw = data[at + 24 : at + 40]
        value = {"L": lambda: field(raw, 0, "q"), "D": lambda: field(raw, 0, "d")}.get(kind, lambda: text(raw))()
        print("keyword", text(data[at : at + 16]), kind, value, field(data, at + 40, "Q"), text(data[at + 48 : at + 128]))
    for name in ("semReadPID", "semWritePID", "semctrl", "semstatus"):
        print(name, *sorted(set(field(data, begin[name], "i", sem))))
    print("posts", *sorted({field(data, begin["semaphores"] + 32 * i, "I") for i in range(sem)}))
    print("log posts", field(data, begin["log semaphore"], "I"))
    print("trace semaphores", *sorted({field(data, begin["process trace"] + 64 * i + 48, "i") for i in range(10)}))
    kind = FORMATS[field(data, 136, "B")]
    pixels = field(data, begin["pixels"], kind, field(data, 128, "Q"))
    print("pixels", pixels[0], pixels[1], pixels[-1])
    print("size", len(data))
    return 0 if len(data) == size else 1


def make(path):
    """4 × 3 floats, each 0.5 more than the one before, cnt0 7, three semaphores, two past frames."""
    data = bytearray(384)
    data[0:4] = b"2.00"
    data[32:39] = b"foreign"
    struct.pack_into("<B", data, 112, 2)
    struct.pack_into("<3I", data, 116, 4, 3, 0)
    struct.pack_into("<Q", data, 128, 12)
    struct.pack_into("<BxxxxxxxQ", data, 136, 9, 2)
    struct.pack_into("<qq", data, 184, 1234, 5678)
    struct.pack_into("<b", data, 240, -1)
    struct.pack_into("<HHxxQ", data, 258, 3, 5, 7)
    struct.pack_into("<HI", data, 290, 2, 2)
    struct.pack_into("<Q", data, 312, 48)
    begin, size = parts(data)
    data.extend(bytes(size - len(data)))
    struct.pack_into("<12f", data, begin["pixels"], *[0.5 * i for i in range(12)])
    struct.pack_into("<16sc7xqq", data, begin["keywords"], b"UNUSED", b"N", 0, 0)
    struct.pack_into("<16sc7xd8xQ80s", data, begin["keywords"] + 128, b"GAIN", b"D", 0.25, 1, b"of the loop")
    for i in range(3):
        struct.pack_into("<i", data, begin["semReadPID"] + 4 * i, -1)
    with open(path, "wb") as file:
        file.write(data)


def watch(path, frames):
    with open(path, "r+b") as file:
        data = mmap.mmap(file.fileno(), 0)
    kind = FORMATS[field(data, 136, "B")]
    elements = field(data, 128, "Q")
    size = SIZES[field(data, 136, "B")]
    seen = 0
    while frames > 0:
        count, write = field(data, 264, "Q"), data[288]
        if count == seen or write:
            time.sleep(0.0001)
            continue
        pixels = struct.unpack("<%d%s" % (elements, kind), data[384 : 384 + elements * size])
        write_after, count_after = data[288], field(data, 264, "Q")
        if write_after or count_after != count:
            continue
        if len(set(pixels)) != 1:
            sys.exit("torn: frame %d" % count)
        print(count, pixels[0])
        seen = count
        frames -= 1


if __name__ == "__main__":
    command, *arguments = sys.argv[1:]
    if command == "describe":
        sys.exit(describe(arguments[0]))
    if command == "make":
        make(arguments[0])
    if command == "watch":
        watch(arguments[0], int(arguments[1]))
