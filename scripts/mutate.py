#!/usr/bin/env python3
"""Measures the test suite's power with single-token mutants of the plug-in's code.

Draws a deterministic sample of mutants (comparison and boundary flips, && and ||, true and
false, +1/-1 on constants, a deleted call statement, a changed returned code) from the plug-in's
sources, and for each one: applies it, rebuilds a g++ build without unity builds (so a mutant
rebuilds its own file; heavy test loops scaled down as under sanitizers), runs the suite with
ctest until its first failure, and restores the
file. Prints killed, survived, timed out and not compiled, with every survivor.

Usage: scripts/mutate.py [--count N] [--seed S] [--build DIR] [--list] [--only I,J,...]
  --list   print the sample and stop (the same sample for the same code, seed and count)
  --only   run only these sample indices (to look at survivors again)
"""
import argparse
import os
import random
import re
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FOLDERS = ["package", "monitor", "reporting", "configuration", "storage", "eil", "logging", "host"]

# Operators as they stand between spaces in this code base; templates (`<` without spaces) are
# left alone, so no mutant is a template argument list.
SWAPS = [(" == ", " != "), (" != ", " == "), (" < ", " <= "), (" <= ", " < "), (" > ", " >= "),
         (" >= ", " > "), (" && ", " || "), (" || ", " && ")]
WORDS = [(r"\btrue\b", "false"), (r"\bfalse\b", "true")]
NUMBER = re.compile(r"(?<![\w.])(\d+)(?![\w.'])")
CALL_STATEMENT = re.compile(r"^\s*(?:\(void\))?[A-Za-z_][\w:.\->]*(?:<[^;]*>)?\(.*\);\s*$")
# A parameter list (a type, then a name) marks a declaration, not a call.
DECLARATION = re.compile(r"\b(const|unsigned|int|bool|char|void|auto)\b|[\w>]\s+[&*]*\w+\s*[,)]")
RETURN_CODE = re.compile(r"\breturn (Result::\w+|\d+);")


def candidates():
    """Every mutant of the plug-in's code: (path, line number, column, old text, new text)."""
    found = []
    for folder in FOLDERS:
        for directory, _, files in sorted(os.walk(os.path.join(ROOT, folder))):
            for name in sorted(files):
                if not name.endswith((".cpp", ".h")):
                    continue
                path = os.path.relpath(os.path.join(directory, name), ROOT)
                with open(os.path.join(ROOT, path), encoding="utf-8") as source:
                    lines = source.read().split("\n")
                previous = ";"
                for number, line in enumerate(lines, 1):
                    code = line.split("//")[0]
                    stripped = code.strip()
                    # A statement's continuation lines are mutated with its first line only.
                    continuation = not previous.endswith((";", "{", "}", ":"))
                    if stripped:
                        previous = stripped
                    if not stripped or stripped.startswith(("#", "*", "static_assert")) or "virtual" in code:
                        continue
                    for old, new in SWAPS:
                        for match in re.finditer(re.escape(old), code):
                            found.append((path, number, match.start(), old, new))
                    for pattern, new in WORDS:
                        for match in re.finditer(pattern, code):
                            found.append((path, number, match.start(), match.group(0), new))
                    if "constexpr" not in code and "0x" not in code and "[" not in code:
                        for match in NUMBER.finditer(code):
                            value = int(match.group(1))
                            for changed in (value + 1, value - 1):
                                if changed >= 0:
                                    found.append((path, number, match.start(), match.group(1), str(changed)))
                    match = RETURN_CODE.search(code)
                    if match:
                        new = "Result::ProtocolError" if match.group(1) != "Result::ProtocolError" else "Result::Success"
                        found.append((path, number, match.start(1), match.group(1), new))
                    if (CALL_STATEMENT.match(code) and not continuation and not stripped.startswith("return")
                            and not DECLARATION.search(code)):
                        found.append((path, number, len(code) - len(code.lstrip()), stripped, ";"))
    return found


def sample(count, seed):
    everything = candidates()
    chosen = random.Random(seed).sample(everything, min(count, len(everything)))
    return sorted(chosen)


def apply(mutant):
    path, number, column, old, new = mutant
    full = os.path.join(ROOT, path)
    with open(full, encoding="utf-8") as source:
        original = source.read()
    lines = original.split("\n")
    line = lines[number - 1]
    assert line[column:column + len(old)] == old, f"{path}:{number} no longer holds {old!r}"
    lines[number - 1] = line[:column] + new + line[column + len(old):]
    with open(full, "w", encoding="utf-8") as source:
        source.write("\n".join(lines))
    return full, original


def run(command, timeout):
    # A session of its own, so that a timeout kills the test that hangs, not only ctest.
    process = subprocess.Popen(command, cwd=ROOT, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               start_new_session=True)
    try:
        return process.wait(timeout=timeout)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--count", type=int, default=80)
    parser.add_argument("--seed", type=int, default=20261124)
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "mutate"))
    parser.add_argument("--timeout", type=int, default=180, help="seconds of the suite per mutant")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--only", default="")
    args = parser.parse_args()

    mutants = sample(args.count, args.seed)
    if args.list:
        for index, (path, number, _, old, new) in enumerate(mutants):
            print(f"{index:3} {path}:{number}: {old.strip()!r} -> {new.strip()!r}")
        return 0
    only = {int(i) for i in args.only.split(",") if i}

    jobs = str(os.cpu_count() or 2)
    # Tests scale their heavy loops down as in sanitizer builds (50,000 random lines instead of a
    # million): a mutant costs seconds of testing instead of half a minute.
    configure = ["cmake", "--preset", "gcc", "-B", args.build, "-DCMAKE_UNITY_BUILD=OFF", "-DKALVO_WERROR=OFF",
                 "-DCMAKE_CXX_FLAGS=-DKALVO_SANITIZED=1"]
    build = ["cmake", "--build", args.build, "-j", jobs]
    test = ["ctest", "--test-dir", args.build, "--stop-on-failure", "-j", jobs]
    if run(configure, None) != 0 or run(build, None) != 0 or run(test, None) != 0:
        print("the unmutated tree does not build or pass its tests", file=sys.stderr)
        return 2

    outcome = {"killed": [], "survived": [], "timed out": [], "not compiled": []}
    started = time.time()
    for index, mutant in enumerate(mutants):
        if only and index not in only:
            continue
        path, number, _, old, new = mutant
        full, original = apply(mutant)
        try:
            if run(build, None) != 0:
                verdict = "not compiled"
            else:
                code = run(test, args.timeout)
                verdict = "timed out" if code is None else "survived" if code == 0 else "killed"
        finally:
            with open(full, "w", encoding="utf-8") as source:
                source.write(original)
        outcome[verdict].append((index, mutant))
        print(f"[{index:3}] {verdict:12} {path}:{number}: {old.strip()!r} -> {new.strip()!r}", flush=True)
    run(build, None)

    print(f"\n{len(mutants)} mutants (seed {args.seed}) in {time.time() - started:.0f} s: "
          + ", ".join(f"{len(v)} {k}" for k, v in outcome.items()))
    compiled = len(outcome["killed"]) + len(outcome["survived"]) + len(outcome["timed out"])
    if compiled:
        print(f"score: {len(outcome['killed']) + len(outcome['timed out'])}/{compiled} compiled mutants detected")
    for index, (path, number, _, old, new) in outcome["survived"]:
        print(f"survivor [{index}] {path}:{number}: {old.strip()!r} -> {new.strip()!r}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
