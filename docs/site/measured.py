"""Prints the page "How fast, how exact, how tested", made from the files that the commands leave which measure that. Of
one that has not been run it says what it is. Works in the repository's folder.
"""

import datetime
import json
import os
import re
import shlex
import sys
import xml.etree.ElementTree

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "benchmarks"))
import table as benchmarks  # the one that prints what scripts/bench prints


def read_json(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def rows(head, align, lines):
    return "\n".join(f"| {' | '.join(line)} |" for line in [head, align, *lines]) + "\n"


def compiler_of(build):
    """The compiler of a build folder and what it was given for the libraries, warnings and folders left out."""
    folder = os.path.join(build, "CMakeFiles")
    version = next(name for name in sorted(os.listdir(folder), reverse=True)
                   if os.path.exists(os.path.join(folder, name, "CMakeCXXCompiler.cmake")))
    with open(os.path.join(folder, version, "CMakeCXXCompiler.cmake"), encoding="utf-8") as file:
        told = dict(re.findall(r'^set\((CMAKE_CXX_COMPILER_ID|CMAKE_CXX_COMPILER_VERSION) "(.*)"\)$', file.read(),
                               re.MULTILINE))
    words = next(shlex.split(entry["command"]) for entry in read_json(f"{build}/compile_commands.json")
                 if "quen_shssim_objects.dir" in entry["command"])
    flags = " ".join(word for word in words if re.match(r"-(O|f|m|std|D|-)", word) and "prefix-map" not in word)
    return f"{told['CMAKE_CXX_COMPILER_ID']} {told['CMAKE_CXX_COMPILER_VERSION']}, `{flags}`"


def speed(path):
    results = read_json(path)
    context = results["context"]
    processor = context.get("processor", "a processor that was not asked for its name")
    return (f"{context['num_cpus']} × {processor}, {compiler_of('build/bench')}. The best of all rounds; a ratio is that "
            f"of the first row of its case to this one.\n\n{benchmarks.table(benchmarks.best_times(results))}\n")


def scores(path):
    found = read_json(path)

    def number(value):
        return "–" if value is None else f"{value:.2e}"

    lines = [[f"`{s['engine']}`", number(s["x"]["bias"]), number(s["y"]["bias"]), number(s["x"]["rms"]),
              number(s["y"]["rms"]), number(s["worst"]), f"{100 * s['failed']:.1f} %"] for s in found["scores"]]
    told = ", ".join(f"{key.replace('_', ' ')} {found[key]}" for key in ("noise", "range", "frames", "seed"))
    return (f"Errors in pixels, measured less true; {told}. The least RMS error that the noise allows is "
            f"{number(found['least_rms'])} pixels.\n\n" +
            rows(["engine", "bias x", "bias y", "RMS x", "RMS y", "worst", "failed"],
                 ["---"] + 6 * ["---:"], lines))


def ratios(path):
    cases = [(case["value_param"] if "value_param" in case else case["name"], case["ratio"])
             for suite in read_json(path)["testsuites"] for case in suite["testsuite"] if "ratio" in case]
    lines = [[re.sub(r"[|`]", " ", name), f"{float(ratio):.3f}"] for name, ratio in cases]
    return ("RMS error of the fit of maximum likelihood on frames of a camera, over the least that its free parameters "
            "allow.\n\n" + rows(["frames", "ratio"], ["---", "---:"], lines))


def tests(path):
    suite = xml.etree.ElementTree.parse(path).getroot()
    cases = suite.findall("testcase")
    of_state = {state: [case.get("name") for case in cases if case.get("status") == state]
                for state in ("run", "fail", "notrun", "disabled")}
    if sum(map(len, of_state.values())) != len(cases):
        raise ValueError("a test with a state of no known name")
    lines = [[words, str(len(of_state[state]))] for state, words in
             [("run", "passed"), ("fail", "failed"), ("notrun", "skipped"), ("disabled", "disabled")]]
    told = [f"- {words}: `{name}`" for state, words in [("fail", "failed"), ("notrun", "skipped")]
            for name in of_state[state]]
    seconds = sum(float(case.get("time")) for case in cases)
    return (f"{compiler_of('build/dev')}. {len(cases)} tests, {seconds / 60:.1f} minutes of one processor's time.\n\n" +
            rows(["", "tests"], ["---", "---:"], lines) + "\n" + "\n".join(told) + "\n")


def coverage(path):
    found = read_json(path)

    def share(of, kind):
        total = of[f"{kind}_total"]
        return f"{of[f'{kind}_covered']} of {total}" + (f", {100 * of[f'{kind}_covered'] / total:.1f} %" if total else "")

    lines = [[f"`{file['filename']}`", share(file, "line"), share(file, "branch")] for file in found["files"]]
    return (f"{compiler_of('build/coverage')}.\n\n" +
            rows(["source", "lines", "branches"], ["---", "---:", "---:"],
                 [["all", share(found, "line"), share(found, "branch")], *lines]))


SCORED = "build/docs/score.json"
RATIOS = "build/docs/ratios.json"
PARTS = [
    ("How fast", [("build/bench/results.json", "scripts/bench", speed)]),
    ("How exact", [
        (SCORED, "quen-shs calibrate build/docs/sensor --force\n"
                 f"quen-shs score build/docs/sensor --json >{SCORED}", scores),
        (RATIOS, "build/dev/centroiders_test --gtest_filter='Cases/MaximumLikelihood.ErrsByTheBoundAndNoMore/*' \\\n"
                 f"  --gtest_output=json:{RATIOS}", ratios)]),
    ("How tested", [
        ("build/dev/results.xml", "scripts/test --output-junit results.xml", tests),
        ("build/coverage/summary.json", "scripts/coverage -L 'unit|abi'", coverage)]),
]


def shown(path, command, show):
    block = f"```{{.unparsed}}\n{command}\n```\n"
    if not os.path.exists(path):
        return f"Not measured where this page was made. What would be shown here is left by\n\n{block}"
    made = datetime.datetime.fromtimestamp(os.path.getmtime(path), datetime.timezone.utc)
    try:
        return f"By this command, at {made:%Y-%m-%d %H:%M} UTC:\n\n{block}\n{show(path)}"
    except (KeyError, TypeError, ValueError, StopIteration, OSError, xml.etree.ElementTree.ParseError) as error:
        raise ValueError(f"{path} is not what this leaves: {command}\n({error!r}) Run it again, or remove the file.") from error


def page():
    parts = ["# How fast, how exact, how tested {#page_measured}\n\n[TOC]\n\n"
             "All figures of this page are those of files that the commands beside them have left, on the machine where "
             "the page was made.\n"]
    for title, results in PARTS:
        parts.append(f"## {title} {{#page_measured_{title.lower().replace(' ', '_')}}}\n")
        parts += [shown(path, command, show) for path, command, show in results]
    return "\n".join(parts)
