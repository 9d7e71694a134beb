"""Runs the programs that come on the standard input, and answers with what each printed.

A program is its number of bytes in a line, and these; an answer is a line of its exit code and the numbers of bytes of
its output and of its errors, and both. See python.hpp.
"""

import contextlib
import io
import sys
import traceback
import warnings


def run(program):
    try:
        exec(compile(program, "<test>", "exec"), {"__name__": "__main__"})  # pylint: disable=exec-used
    except SystemExit as end:
        if end.code is None or isinstance(end.code, int):
            return end.code or 0
        print(end.code, file=sys.stderr)
        return 1
    except BaseException:  # pylint: disable=broad-except
        traceback.print_exc()
        return 1
    return 0


def main():
    programs, answers = sys.stdin.buffer, sys.stdout.buffer
    while size := programs.readline():
        program = programs.read(int(size)).decode()
        texts = [io.TextIOWrapper(io.BytesIO(), write_through=True) for _ in range(2)]
        with contextlib.redirect_stdout(texts[0]), contextlib.redirect_stderr(texts[1]), warnings.catch_warnings():
            code = run(program)
        out, err = (text.buffer.getvalue() for text in texts)
        answers.write(b"%d %d %d\n" % (code, len(out), len(err)) + out + err)
        answers.flush()


main()
