#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Plants one small fault at a time in library sources and runs tests on it.

Each mutant changes one line: a comparison or logical operator turned, an
integer constant moved by one, a result code or truth value swapped, or a
call that closes, syncs or removes something left out. The library is
rebuilt (only the changed object and the library are), the chosen tests run,
and the mutant counts as caught when a test fails. The source is restored
after every mutant, also when the script is interrupted.

    python3 scripts/mutation_check.py [--build build] [--tests a,b]
        [--per-file N] [--seed S] [--out results.txt] FILE...

Without --tests the whole unit suite runs. The result lists every mutant
with "caught" or "missed"; compare two runs (before and after a change to
the tests) with diff.
"""
import argparse
import random
import re
import signal
import subprocess
import sys

OPERATORS = [
    (r"(?<![<>=!])==(?!=)", "!="),
    (r"!=", "=="),
    (r"(?<![<>-])<=", "<"),
    (r"(?<![<>-])>=", ">"),
    (r"(?<![<>=-])<(?![<=])", "<="),
    (r"(?<![<>=-])>(?![>=])", ">="),
    (r"&&", "||"),
    (r"\|\|", "&&"),
    (r"\btrue\b", "false"),
    (r"\bfalse\b", "true"),
    (r"return 0;", "return -1;"),
    (r"return -1;", "return 0;"),
]
LEFT_OUT = re.compile(r"^\s*(::)?(close|fclose|fsync|unlink|free)\(.*\);\s*$")
CONSTANT = re.compile(r"(?<![\w.])([0-9]+)(?![\w.x])")
SKIPPED = re.compile(r"^\s*(#|//|\*|/\*)|static_assert|template\s*<|#include")


def mutants_of(path):
    """Every (line number, new line, label) that one small fault makes."""
    found = []
    with open(path, encoding="utf-8") as source:
        lines = source.readlines()
    for number, line in enumerate(lines):
        if SKIPPED.search(line) or '"' in line and "return" not in line:
            continue
        for pattern, replacement in OPERATORS:
            for match in re.finditer(pattern, line):
                new = line[: match.start()] + replacement + line[match.end():]
                found.append((number, new, f"{match.group(0)} -> {replacement}"))
        for match in CONSTANT.finditer(line.split("//")[0]):
            value = int(match.group(1))
            new = line[: match.start()] + str(value + 1) + line[match.end():]
            found.append((number, new, f"{value} -> {value + 1}"))
        if LEFT_OUT.match(line):
            found.append((number, "\n", "call left out"))
    return lines, found


def run(command, timeout):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL,
                              timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return -1


def stop(signum, frame):
    """A terminated run restores the source on its way out."""
    raise KeyboardInterrupt


def main():
    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGHUP, stop)
    parser = argparse.ArgumentParser()
    parser.add_argument("files", nargs="+")
    parser.add_argument("--build", default="build")
    parser.add_argument("--tests", default="")
    parser.add_argument("--per-file", type=int, default=30)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--out", default="-")
    args = parser.parse_args()

    test = ["meson", "test", "-C", args.build, "--no-rebuild",
            "--num-processes", "2"]
    test += args.tests.split(",") if args.tests else ["--suite", "unit"]
    out = sys.stdout if args.out == "-" else open(args.out, "w")
    caught = total = 0
    for path in args.files:
        lines, found = mutants_of(path)
        random.Random(f"{args.seed}:{path}").shuffle(found)
        try:
            for number, new, label in found[: args.per_file]:
                mutated = lines[:number] + [new] + lines[number + 1:]
                with open(path, "w", encoding="utf-8") as source:
                    source.writelines(mutated)
                if run(["ninja", "-C", args.build], 600) != 0:
                    continue  # does not build: no mutant
                total += 1
                failed = run(test, 900) != 0
                caught += failed
                verdict = "caught" if failed else "missed"
                print(f"{verdict} {path}:{number + 1} {label}", file=out,
                      flush=True)
        finally:
            with open(path, "w", encoding="utf-8") as source:
                source.writelines(lines)
    run(["ninja", "-C", args.build], 600)
    print(f"{caught} of {total} mutants caught", file=out, flush=True)


if __name__ == "__main__":
    main()
