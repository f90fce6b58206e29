#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Puts small faults into the library one at a time and reports which ones
the test suite lets through.

Each mutant changes one token on one code line of src/, rsmpl/, util/ or
the shipped tool tools/skelda_convert.cpp: a
comparison (< <= > >= == !=), a logical operator, + and -, an integer
literal by one, or an increment. The tree is rebuilt and the tests run; a
mutant that no longer compiles is not counted. The file is restored after
every mutant, also when the run is interrupted.

    python3 tools/mutants.py [--build DIR] [--per-file N] [--seed S]
                             [--tests 'ctest -E ...'] FILE...

With no FILE, every .cpp and .h under src/, rsmpl/ and util/, subfolders
included, and tools/skelda_convert.cpp (held by the offline converter's
tests and convert_test, which the default test command runs; it leaves out
the older CPUs' runs under qemu-user, which repeat the kernel tests the
native run has). Survivors are
printed as file:line with the changed line; some may be equivalent (the
change does not alter behaviour) and need a look before a test is written.
"""
import argparse
import os
import random
import re
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DEFAULT_TESTS = ("ctest --timeout 120 -E 'valgrind_aplay|install' -LE older_cpus")
SHIPPED_TOOLS = ["tools/skelda_convert.cpp"]

SWAPS = [(" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "),
         (" == ", " != "), (" != ", " == "), (" && ", " || "), (" || ", " && "),
         (" + ", " - "), (" - ", " + "), ("++", "--"), ("--", "++")]
LITERAL = re.compile(r"(?<![\w.])(\d+)(?![\w.])")


def code_part(line):
    """The line without string literals and trailing comments (None: skip it)."""
    stripped = line.strip()
    if not stripped or stripped.startswith(("//", "#", "*", "/*")):
        return None
    out, quote = [], None
    i = 0
    while i < len(line):
        ch = line[i]
        if quote:
            if ch == "\\":
                out.append("  ")
                i += 2
                continue
            if ch == quote:
                quote = None
            out.append(" ")
        elif ch in "\"'":
            quote = ch
            out.append(" ")
        elif line.startswith("//", i):
            break
        else:
            out.append(ch)
        i += 1
    return "".join(out)


def mutants_of(path):
    with open(path) as f:
        lines = f.readlines()
    found = []
    for n, line in enumerate(lines):
        code = code_part(line)
        if code is None or "static_assert" in code:
            continue
        for old, new in SWAPS:
            start = code.find(old)
            while start != -1:
                found.append((n, start, old, new))
                start = code.find(old, start + 1)
        for m in LITERAL.finditer(code):
            value = int(m.group(1))
            for v in (value + 1, value - 1):
                if v >= 0:
                    found.append((n, m.start(1), m.group(1), str(v)))
    return lines, found


def run(cmd, cwd, timeout):
    try:
        return subprocess.run(cmd, cwd=cwd, shell=True, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=timeout).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("files", nargs="*")
    ap.add_argument("--build", default="build-mutants")
    ap.add_argument("--per-file", type=int, default=8)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--tests", default=DEFAULT_TESTS)
    args = ap.parse_args()
    files = args.files or sorted(
        os.path.relpath(os.path.join(top, f), ROOT) for d in ("src", "rsmpl", "util")
        for top, _, names in os.walk(os.path.join(ROOT, d))
        for f in names if f.endswith((".cpp", ".h"))) + SHIPPED_TOOLS
    build = os.path.join(ROOT, args.build)
    if not os.path.exists(os.path.join(build, "CMakeCache.txt")):
        subprocess.run(["cmake", "-S", ROOT, "-B", build, "-G", "Ninja",
                        "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DSKELDA_BENCH=OFF"],
                       check=True, stdout=subprocess.DEVNULL)
    env_tests = f"cd {build} && SKELDA_SOAK_SECONDS=2 SKELDA_REDUCED=1 {args.tests}"
    if not run(f"ninja -C {build}", ROOT, 1800) or not run(env_tests, ROOT, 1800):
        sys.exit("the unmutated tree does not build or pass its tests")
    rng = random.Random(args.seed)
    killed = survived = stillborn = 0
    survivors = []
    for rel in files:
        path = os.path.join(ROOT, rel)
        lines, found = mutants_of(path)
        rng.shuffle(found)
        original = "".join(lines)
        for n, col, old, new in found[:args.per_file]:
            changed = list(lines)
            changed[n] = lines[n][:col] + new + lines[n][col + len(old):]
            try:
                with open(path, "w") as f:
                    f.write("".join(changed))
                if not run(f"ninja -C {build}", ROOT, 900):
                    stillborn += 1
                    continue
                if run(env_tests, ROOT, 900):
                    survived += 1
                    survivors.append(f"{rel}:{n + 1}: {old.strip()} -> {new.strip()}: "
                                     f"{changed[n].strip()}")
                    print("SURVIVED", survivors[-1], flush=True)
                else:
                    killed += 1
                    print(f"killed   {rel}:{n + 1}: {old.strip()} -> {new.strip()}", flush=True)
            finally:
                with open(path, "w") as f:
                    f.write(original)
    run(f"ninja -C {build}", ROOT, 1800)
    total = killed + survived
    print(f"\n{killed} of {total} mutants killed, {survived} survived, "
          f"{stillborn} did not compile")
    for s in survivors:
        print("  " + s)


if __name__ == "__main__":
    main()
