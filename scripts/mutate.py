#!/usr/bin/env python3
"""Measures the test suite's power with single-token mutants of the plug-in's code.

The sample is a checked-in list (scripts/mutants.txt) of mutants named by content: file, the
line's text, which occurrence of the token on that line, and the replacement. Small edits
elsewhere in a file do not move a mutant, so runs before and after a change of the tests compare
the same sample. `--generate` rebuilds the list from the code with a fixed seed.

Each mutant is applied, rebuilt incrementally in a build directory of its own (gcc, no unity
build, so one mutant recompiles one file) and the suite runs until its first failure.
"""
import argparse
import hashlib
import os
import re
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PLUGIN_DIRS = ["package", "monitor", "reporting", "configuration", "storage", "eil", "logging", "host"]
LIST = os.path.join(ROOT, "scripts", "mutants.txt")
SEP = " \u00a6 "  # field separator of the list: never appears in the code

# Token swaps; spaces around binary operators keep template brackets and shifts out.
SWAPS = [
    (" == ", " != "), (" != ", " == "),
    (" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "),
    (" && ", " || "), (" || ", " && "),
    ("true", "false"), ("false", "true"),
]
WORD_TOKENS = {"true", "false"}
NUMBER = re.compile(r"(?<![\w.])(\d+)(?![\w.'])")
RESULT_CODE = re.compile(r"\breturn (k[A-Z]\w*(?:Result|Error|Ok|Code)\w*|kResult\w*|kNo\w*|kInvalid\w*|kOutOf\w*);")
CALL_STATEMENT = re.compile(r"^\s*[A-Za-z_][\w:.>\-\[\]]*\s*\([^;]*\)\s*;\s*$")


def source_files():
    for top in PLUGIN_DIRS:
        for base, _, names in os.walk(os.path.join(ROOT, top)):
            for name in sorted(names):
                if name.endswith((".cpp", ".h")):
                    yield os.path.relpath(os.path.join(base, name), ROOT)


def code_lines(path):
    """Yields (text) of lines that hold code, outside comments, asserts and logging."""
    in_block = False
    with open(os.path.join(ROOT, path), encoding="utf-8") as f:
        for line in f:
            stripped = line.strip()
            if in_block:
                if "*/" in stripped:
                    in_block = False
                continue
            if stripped.startswith("/*"):
                in_block = "*/" not in stripped
                continue
            if not stripped or stripped.startswith(("//", "#", "static_assert", "assert")):
                continue
            yield line.rstrip("\n").split("//")[0].rstrip()


def candidates():
    for path in source_files():
        for text in code_lines(path):
            for old, new in SWAPS:
                pattern = r"\b%s\b" % old if old in WORD_TOKENS else re.escape(old)
                for i, _ in enumerate(re.finditer(pattern, text)):
                    yield (path, text, old, i, new)
            for i, m in enumerate(NUMBER.finditer(text)):
                value = int(m.group(1))
                yield (path, text, m.group(1), i, str(value + 1))
                if value > 0:
                    yield (path, text, m.group(1), i, str(value - 1))
            m = RESULT_CODE.search(text)
            if m:
                code = m.group(1)
                other = "kResultFalse" if code != "kResultFalse" else "kResultOk"
                yield (path, text, code, 0, other)
            if CALL_STATEMENT.match(text) and not text.strip().startswith(("return", "delete", "if", "while", "for", "switch", "else")):
                yield (path, text, text.strip(), 0, "/*deleted*/;")


def mutant_id(m):
    return SEP.join([m[0], m[1].strip(), m[2], str(m[3]), m[4]])


def generate(count, seed):
    seen = {}
    for m in candidates():
        seen.setdefault(mutant_id(m), m)
    # Deterministic by content: a keyed hash orders the candidates, so a mutant stays picked as
    # long as its line is unchanged, whatever happens elsewhere in the file.
    ranked = sorted(seen, key=lambda k: hashlib.sha256((str(seed) + k).encode()).hexdigest())
    # The sections written by hand (from the first comment line after the header on) are kept.
    kept = []
    if os.path.exists(LIST):
        with open(LIST, encoding="utf-8") as f:
            lines = f.read().splitlines()[1:]
        starts = [n for n, l in enumerate(lines) if l.startswith("#")]
        kept = lines[starts[0]:] if starts else []
    with open(LIST, "w", encoding="utf-8") as f:
        f.write("# file%sline text%stoken%soccurrence on the line%sreplacement  (scripts/mutate.py --generate)\n" % ((SEP,) * 4))
        for k in sorted(ranked[:count]):
            f.write(k + "\n")
        for line in kept:
            f.write(line + "\n")
    print("%d candidates, %d written to %s" % (len(seen), count, os.path.relpath(LIST, ROOT)))


def load():
    # A sixth field, when present, picks which of several lines with the same text (0 the first).
    with open(LIST, encoding="utf-8") as f:
        rows = [l.rstrip("\n").split(SEP) for l in f if l.strip() and not l.startswith("#")]
    return [r if len(r) == 6 else r + ["0"] for r in rows]


def apply(original, text, token, occurrence, replacement, nth=0):
    """Returns the file's content with the mutant applied, or None when its line is gone."""
    lines = original.split("\n")
    for n, line in enumerate(lines):
        if line.split("//")[0].strip() != text:
            continue
        if nth > 0:
            nth -= 1
            continue
        if replacement == "/*deleted*/;":
            lines[n] = line.replace(token, "/*deleted*/;", 1)
            return "\n".join(lines), n + 1
        pattern = r"\b%s\b" % re.escape(token) if token.isalnum() else re.escape(token)
        matches = list(re.finditer(pattern, line))
        if token.isdigit():
            # Numbers count as in generation: the n-th number on the line, whatever its value.
            numbers = list(NUMBER.finditer(line))
            fits = occurrence < len(numbers) and numbers[occurrence].group(1) == token
            matches, occurrence = ([numbers[occurrence]] if fits else []), 0
        if occurrence >= len(matches):
            return None, 0
        m = matches[occurrence]
        lines[n] = line[:m.start()] + line[m.start():m.end()].replace(token, replacement) + line[m.end():]
        return "\n".join(lines), n + 1
    return None, 0


def run(cmd, timeout):
    # A session of its own, so that a timeout kills the test that hangs, not only ctest.
    process = subprocess.Popen(cmd, cwd=ROOT, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               start_new_session=True)
    try:
        return process.wait(timeout=timeout)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return None


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--generate", type=int, metavar="N", help="write a new sample of N mutants")
    ap.add_argument("--seed", type=int, default=12)
    ap.add_argument("--build-dir", default="build/mutate")
    ap.add_argument("--timeout", type=int,
                    help="seconds for one mutant's whole test run (default: three times the unmutated"
                    " run's, at least 60; 180 with --skip-baseline)")
    ap.add_argument("--only", help="run the mutants whose line contains this text")
    ap.add_argument("--list", metavar="FILE", help="run only the mutants listed in FILE (lines as in mutants.txt)")
    ap.add_argument("--survivors", metavar="FILE", help="write the survivors to FILE, one a line as in mutants.txt")
    ap.add_argument("--target", action="append", default=[],
                    help="build only this target (repeatable; the default builds everything)")
    ap.add_argument("--tests", metavar="REGEX", help="run only the tests whose name matches (ctest -R)")
    ap.add_argument("--every-test", action="store_true",
                    help="run every selected test on each mutant, not only until the first failure, and name"
                    " each killing test (cheap where the rebuild dominates)")
    ap.add_argument("--skip-baseline", action="store_true",
                    help="build the unmutated tree but do not run its tests first (already seen passing)")
    args = ap.parse_args()
    if args.generate:
        generate(args.generate, args.seed)
        return 0

    build = ["cmake", "--build", args.build_dir, "-j2"] + [a for t in args.target for a in ("--target", t)]
    test = ["ctest", "--test-dir", args.build_dir, "-j2"] + ([] if args.every_test else ["--stop-on-failure"])
    test += ["-R", args.tests] if args.tests else []
    failed_log = os.path.join(ROOT, args.build_dir, "Testing", "Temporary", "LastTestsFailed.log")
    if not os.path.isdir(os.path.join(ROOT, args.build_dir)):
        # Warnings are not errors here (a mutant that only warns still counts), and tests scale
        # their heavy loops down as under sanitizers, so a mutant costs seconds of testing. No
        # optimisation and no debug information: rebuilding is most of a mutant's cost.
        subprocess.run(["cmake", "--preset", "gcc", "-B", args.build_dir, "-DCMAKE_UNITY_BUILD=OFF",
                        "-DKALVO_WERROR=OFF", "-DCMAKE_CXX_FLAGS=-DKALVO_SANITIZED=1", "-DCMAKE_BUILD_TYPE=Debug",
                        "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_C_FLAGS_DEBUG=-O0"], cwd=ROOT, check=True)
    if run(build, 3600) != 0:
        print("the unmutated tree must build first", file=sys.stderr)
        return 2
    limit = args.timeout or 180
    if not args.skip_baseline:
        begun = time.time()
        if run(test, 1800) != 0:
            print("the unmutated tree must pass first", file=sys.stderr)
            return 2
        limit = args.timeout or max(60, int(3 * (time.time() - begun)))
    # The tests' own TIMEOUT property (600 s) overrides ctest's --timeout, so a mutant that hangs
    # is caught by the limit on the whole run instead: its process group is killed.
    print("a mutant's test run is limited to %d s" % limit, flush=True)

    listed = None
    if args.list:
        with open(args.list, encoding="utf-8") as f:
            listed = {l.rstrip("\n") for l in f if l.strip() and not l.startswith("#")}
    tally = {"killed": 0, "survived": 0, "timed out": 0, "did not compile": 0, "not found": 0}
    survivors = []
    started = time.time()
    for path, text, token, occurrence, replacement, nth in load():
        fields = [path, text, token, occurrence, replacement] + ([nth] if nth != "0" else [])
        if args.only and args.only not in text:
            continue
        if listed is not None and SEP.join(fields) not in listed:
            continue
        full = os.path.join(ROOT, path)
        if not os.path.exists(full):
            original, (mutated, line_no) = None, (None, 0)
        else:
            with open(full, encoding="utf-8") as f:
                original = f.read()
            mutated, line_no = apply(original, text, token, int(occurrence), replacement, int(nth))
        change = "%s -> %s" % (token, replacement)
        if mutated is None:
            verdict = "not found"
        else:
            try:
                with open(full, "w", encoding="utf-8") as f:
                    f.write(mutated)
                if run(build, 900) != 0:
                    verdict = "did not compile"
                else:
                    rc = run(test, limit)
                    verdict = "timed out" if rc is None else ("killed" if rc != 0 else "survived")
            finally:
                with open(full, "w", encoding="utf-8") as f:
                    f.write(original)
        tally[verdict] += 1
        print("%-15s %s:%d  %s   [%s]" % (verdict, path, line_no, change, text.strip()), flush=True)
        if verdict == "killed" and os.path.exists(failed_log):
            with open(failed_log, encoding="utf-8") as f:
                names = [l.strip().split(":", 1)[-1] for l in f if l.strip()]
            print("                  by " + " ".join(names), flush=True)
        if verdict == "survived":
            survivors.append("%s:%d  %s   [%s]" % (path, line_no, change, text.strip()))
            if args.survivors:
                with open(args.survivors, "a", encoding="utf-8") as f:
                    f.write(SEP.join(fields) + "\n")
    run(build, 3600)
    counted = tally["killed"] + tally["survived"] + tally["timed out"]
    print("\nkilled %d, survived %d, timed out %d of %d counted; did not compile %d, not found %d; %.0f min"
          % (tally["killed"], tally["survived"], tally["timed out"], counted,
             tally["did not compile"], tally["not found"], (time.time() - started) / 60))
    for s in survivors:
        print("survivor: " + s)
    return 0


if __name__ == "__main__":
    sys.exit(main())
