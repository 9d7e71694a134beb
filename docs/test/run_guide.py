"""Runs a guide: every command of its console blocks, in an empty folder, and compares what each prints.

    run_guide.py GUIDE FOLDER_OF_THE_TOOL [--update]

A block ```console holds commands, each after "$ ", and what they print; their exit codes must be 0, or the one in a
last line "[exit code N]". A block ```python NAME or ```toml NAME is a file. The folder that all of it runs in is called /home/you. Text
must be the same; numbers may differ in their third digit, and those that follow from the machine's speed or from
rounding may differ altogether. With --update the guide is written anew, to be read again.
"""

import os
import re
import subprocess
import sys
import tempfile

HOME = "/home/you"
PYTHON = os.path.dirname(sys.executable)  # whose python3 the commands are run with
BLOCK = re.compile(r"^```(console|(?:python|toml) (\S+))\n(.*?)^```$", re.MULTILINE | re.DOTALL)
NUMBER = re.compile(r"(?<![\w.])[+-]?\d+(?:\.\d+)?(?:e[+-]?\d+)?(?![\w.]*/)")
# Speeds, times that are expected or measured, the column of times in a table of scores, and which of many equal elements
# is the worst.
UNSURE = re.compile(r"\d+ frames/s|[\d.e+]+ runs/s|[\d.]+ a second|^(expected time|latency|intervals).*|\| +\d+ \|$"
                    r"|element \d+, \d+", re.MULTILINE)


def run(command, folder, path):
    environment = {**os.environ, "PATH": f"{path}:{PYTHON}:/usr/bin:/bin", "LC_ALL": "C.UTF-8", "MILK_SHM_DIR": folder}
    result = subprocess.run(["bash", "-c", command], cwd=folder, env=environment, text=True, timeout=300,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    printed = result.stdout.replace(folder, HOME)
    if result.returncode != 0:
        printed += f"[exit code {result.returncode}]\n"
    return printed


def commands_of(block):
    """Pairs of a command and what it is said to print."""
    pairs = []
    for line in block.splitlines(keepends=True):
        if line.startswith("$ "):
            pairs.append([line[2:-1], ""])
        elif pairs[-1][1] == "" and pairs[-1][0].endswith("\\"):
            pairs[-1][0] += "\n" + line[:-1]
        else:
            pairs[-1][1] += line
    return pairs


def close(expected, found):
    tiny = 1e-9
    a, b = float(expected), float(found)
    return abs(a - b) <= 0.01 * max(abs(a), abs(b)) or max(abs(a), abs(b)) < tiny


def same(expected, found):
    expected, found = UNSURE.sub("?", expected), UNSURE.sub("?", found)
    if NUMBER.sub("#", expected).split() != NUMBER.sub("#", found).split():
        return False
    return all(close(a, b) for a, b in zip(NUMBER.findall(expected), NUMBER.findall(found)))


def main():
    guide, path = sys.argv[1:3]
    update = sys.argv[3:] == ["--update"]
    with open(guide, encoding="utf-8") as file:
        text = file.read()
    failures = 0
    count = 0
    with tempfile.TemporaryDirectory() as folder:
        folder = os.path.realpath(folder)

        def treat(match):
            nonlocal failures, count
            if match[2]:
                with open(os.path.join(folder, match[2]), "w", encoding="utf-8") as script:
                    script.write(match[3])
                return match[0]
            block = ""
            for command, expected in commands_of(match[3]):
                count += 1
                found = run(command, folder, os.path.abspath(path))
                block += f"$ {command}\n{found}"
                if not update and not same(expected, found):
                    failures += 1
                    print(f"--- {command}\nexpected:\n{expected}\nfound:\n{found}")
            return f"```console\n{block}```"

        new = BLOCK.sub(treat, text)
    if update:
        with open(guide, "w", encoding="utf-8") as file:
            file.write(new)
    print(f"{count} commands, {failures} with another result")
    sys.exit(failures > 0 or count == 0)


main()
