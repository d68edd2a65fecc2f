#!/usr/bin/env python3
"""Mutation testing of src/: plant one fault at a time and see whether a test notices.

Each mutant changes one spot of one file of src/: a comparison or logical operator flipped, a
boolean or integer constant changed, a statement deleted, two adjacent host calls or log lines
swapped, a log level changed. The mutant is written into a mirror of the tree under
build/mutate/ (the checkout is never touched, so a crash or Ctrl-C cannot damage it), the mirror's
own build recompiles that one object and relinks libKorvaneAPI, and the tests of the file's family
run, the fault loop included, each under a time limit (a mutant can loop). A mutant no test
notices is a survivor: a missing test, or an equivalent mutant to list in docs/reliability.md.

  scripts/mutate.py                        every mutant of every file of src/
  scripts/mutate.py src/LutInterface.cpp   the mutants of some files
  scripts/mutate.py --list [FILES]         print the mutants without running them
  scripts/mutate.py --id LutInterface.cpp:12
                                           run one mutant and show the failing test's output
  scripts/mutate.py --jobs 2               two mirrors side by side
  scripts/mutate.py --resume               skip mutants whose result build/mutate/results.jsonl holds
  scripts/mutate.py --killed-by lut_test   rerun the mutants lut_test killed last time (after folding it)
  scripts/mutate.py --killed-by SURVIVED   rerun the last run's survivors (after adding tests)
  scripts/mutate.py --report               survivors and score from the latest result of each mutant

Python 3 standard library only.
"""
import argparse
import concurrent.futures
import hashlib
import json
import os
import queue
import re
import shutil
import subprocess
import sys
import threading
from dataclasses import dataclass, asdict
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
RESULTS = WORK / "results.jsonl"
TEST_TIMEOUT = 60  # seconds per test binary; the slowest clean run takes well under one

# The tests of each file's family; every file also runs the fault loop. Headers reach everything.
EVERY_TEST = ["core_test", "service_test", "formula_test", "filter_test", "lut_test", "callbacks_test",
              "sieve_test", "segment_test", "command_test", "cycles_test", "measure_group_test",
              "measure_test", "sampling_test"]
FAMILY_TESTS = {
    "KorvaneAPICore.cpp": ["core_test", "cycles_test", "service_test"],
    "KorvaneAPIService.cpp": ["service_test", "core_test", "cycles_test"],
    "KorvaneAPIException.cpp": ["core_test", "service_test", "measure_test"],
    "FilterInterface.cpp": ["filter_test", "formula_test"],
    "LutInterface.cpp": ["lut_test"],
    "MeasureGroupInterface.cpp": ["measure_group_test"],
    "MeasureInterface.cpp": ["measure_test", "sampling_test", "measure_group_test"],
    "CBInterface.cpp": ["callbacks_test", "core_test"],
    "SieveInterface.cpp": ["sieve_test"],
    "SegmentInterface.cpp": ["segment_test"],
    "CommandInterface.cpp": ["command_test"],
}
FAULT_LOOP = "fault_loop_test"


def tests_for(source):
    """The fault loop first: a mutant that only a family test kills shows which family tests
    still earn their place."""
    return [FAULT_LOOP] + FAMILY_TESTS.get(source, EVERY_TEST)


# ---------------------------------------------------------------------------------------------
# Finding the mutants


@dataclass
class Mutant:
    id: str          # "LutInterface.cpp:12": the file and the mutant's number in it
    file: str        # path under the repository, "src/LutInterface.cpp"
    line: int        # first line changed, 1-based
    column: int      # where the change starts in that line, 0-based
    operator: str    # "==/!=", "delete", "swap", "level Warn/Error", ...
    original: str    # the text replaced, lines joined by "\n"
    replacement: str


def code_only(text):
    """The text with comments and the insides of string and character literals blanked (same
    length, newlines kept), so that patterns match code only."""
    out, i, n = [], 0, len(text)
    while i < n:
        two = text[i:i + 2]
        if two == "//":
            end = text.find("\n", i)
            end = n if end < 0 else end
            out.append(" " * (end - i))
            i = end
        elif two == "/*":
            end = text.find("*/", i + 2) + 2
            out.append(re.sub(r"[^\n]", " ", text[i:end]))
            i = end
        elif text[i] in "\"'":
            quote, j = text[i], i + 1
            while j < n and text[j] != quote:
                j += 2 if text[j] == "\\" else 1
            out.append(quote + " " * (j - i - 1) + quote)
            i = j + 1
        else:
            out.append(text[i])
            i += 1
    return "".join(out)


def line_starts(text):
    starts = [0]
    for m in re.finditer("\n", text):
        starts.append(m.end())
    return starts


def line_of(starts, offset):
    lo, hi = 0, len(starts) - 1
    while lo < hi:
        mid = (lo + hi + 1) // 2
        if starts[mid] <= offset:
            lo = mid
        else:
            hi = mid - 1
    return lo + 1


# Token replacements: (pattern over the code-only text, operator name, replacement function).
LEVEL_SWAP = {"Debug": "Info", "Info": "Debug", "Warn": "Error", "Error": "Warn"}


def flip_integer(token):
    value = int(token, 16) if token.lower().startswith("0x") else int(token)
    new = {0: 1, 1: 0}.get(value, value + 1)
    return hex(new) if token.lower().startswith("0x") else str(new)


TOKEN_RULES = [
    (r"(?<= )(==|!=)(?= )", "==/!=", lambda t: "!=" if t == "==" else "=="),
    (r"(?<= )(<=|>=|<|>)(?= )", "boundary", lambda t: {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}[t]),
    (r"(?<= )(&&|\|\|)(?= )", "&&/||", lambda t: "||" if t == "&&" else "&&"),
    (r"!(?=[\w(])", "drop !", lambda t: ""),
    (r"\b(true|false)\b", "true/false", lambda t: "false" if t == "true" else "true"),
    (r"(?<![\w.])(0[xX][0-9a-fA-F]+|\d+)(?![\w.])", "integer", flip_integer),
    (r"(?<=KAPI_LOG\()(Debug|Info|Warn|Error)\b", "level", lambda t: LEVEL_SWAP[t]),
    (r"(?<=KAPI_LOG_AT\()(Debug|Info|Warn|Error)\b", "level", lambda t: LEVEL_SWAP[t]),
    (r"(?<=KrvLoggerLevel::)(Debug|Info|Warn|Error)\b", "level", lambda t: LEVEL_SWAP[t]),
]

# Lines no mutant touches: preprocessor lines, and the sizes of the formatting buffers.
SKIPPED_LINE = re.compile(r"^\s*#|^\s*char \w+\[\d+\];|^\s*static_assert")


def token_mutants(text, code, starts):
    found = []
    for pattern, name, replace in TOKEN_RULES:
        for m in re.finditer(pattern, code):
            line = line_of(starts, m.start())
            line_text = text[starts[line - 1]:text.find("\n", m.start())]
            if SKIPPED_LINE.match(line_text):
                continue
            token = text[m.start():m.end()]
            new = replace(token)
            label = f"{name} {token}->{new or '(none)'}" if name != "level" else f"level {token}->{new}"
            found.append((m.start(), m.end(), new, line, label))
    return found


@dataclass
class Statement:
    start: int  # offsets into the text, the statement's own lines (indentation to newline)
    end: int
    code: str   # its code-only text
    line: int


DECLARATION = re.compile(r"^(const\s+|static\s+|constexpr\s+)*[\w:]+(<[^;=]*>)?[\s*&]+\w+\s*(=|\(|\{|\[|;)")
EXPRESSION_START = re.compile(r"^(\w[\w.:>\[\]-]*\s*(\(|=|\+=|-=|\|=)|\w+->|\(|throw\b|if\b|KAPI_)")


def statements(code, starts):
    """Whole-line statements inside function bodies that can be deleted or swapped without
    breaking the build: expression statements (calls, assignments, throws, one-line ifs), not
    declarations, returns or block openers. A statement may span lines (open parentheses)."""
    found = []
    lines = code.split("\n")
    depth_brace = 0
    previous = ";"  # the last non-blank code line: a statement starts after ; { } only
    i = 0
    while i < len(lines):
        stripped = lines[i].strip()
        starts_statement = previous[-1] in ";{}" and not stripped.startswith(("return", "}", "{", "else", "case", "default"))
        if depth_brace > 0 and stripped and starts_statement:
            j, parens = i, 0
            while True:
                parens += lines[j].count("(") - lines[j].count(")")
                if parens <= 0 and lines[j].rstrip().endswith(";") or j + 1 >= len(lines) or "{" in lines[j]:
                    break
                j += 1
            whole = " ".join(part.strip() for part in lines[i:j + 1])
            if whole.endswith(";") and "{" not in whole and "}" not in whole and \
                    not DECLARATION.match(whole) and EXPRESSION_START.match(whole) and \
                    not whole.startswith(("if (", "for (", "while (")) or (
                        whole.startswith("if (") and whole.endswith(";") and "{" not in whole):
                found.append(Statement(starts[i], starts[j] + len(lines[j]), whole, i + 1))
        depth_brace += lines[i].count("{") - lines[i].count("}")
        previous = stripped or previous
        i += 1
    return found


def is_call(statement):
    return "(" in statement.code


def statement_mutants(text, code, starts):
    found = []
    listed = statements(code, starts)
    for s in listed:
        # Blank the statement's text but keep its newlines: every other line keeps its number.
        original = text[s.start:s.end]
        found.append((s.start, s.end, re.sub(r"[^\n]", "", original), s.line, "delete statement"))
    for a, b in zip(listed, listed[1:]):
        between = code[a.end:b.start]
        if between.strip() or not (is_call(a) and is_call(b)):
            continue
        first, gap, second = text[a.start:a.end], text[a.end:b.start], text[b.start:b.end]
        found.append((a.start, b.end, second + gap + first, a.line, "swap with next statement"))
    return found


def mutants_of(path):
    text = (ROOT / path).read_text()
    code = code_only(text)
    starts = line_starts(text)
    spots = sorted(token_mutants(text, code, starts) + statement_mutants(text, code, starts),
                   key=lambda spot: (spot[3], spot[0], spot[4]))
    name = Path(path).name
    return [Mutant(f"{name}:{n}", path, line, start - starts[line - 1], label, text[start:end], new)
            for n, (start, end, new, line, label) in enumerate(spots, 1)]


def apply(mutant, text):
    start = line_starts(text)[mutant.line - 1] + mutant.column
    assert text[start:start + len(mutant.original)] == mutant.original, mutant.id
    return text[:start] + mutant.replacement + text[start + len(mutant.original):]


def source_files(arguments):
    if arguments:
        return [str(Path(a).resolve().relative_to(ROOT)) for a in arguments]
    return sorted(str(p.relative_to(ROOT)) for p in (ROOT / "src").iterdir() if p.suffix in (".cpp", ".h"))


# ---------------------------------------------------------------------------------------------
# Mirrors and their builds


def copy_if_changed(source, target):
    if target.exists() and target.read_bytes() == source.read_bytes():
        return
    target.parent.mkdir(parents=True, exist_ok=True)
    # The content and mode, not the time stamp: one older than the mirror's objects goes unbuilt.
    shutil.copyfile(source, target)
    shutil.copymode(source, target)


def sync_mirror(mirror):
    """The checkout's tree (no build/, no .git) copied into the mirror, unchanged files left alone
    so that the mirror's build stays incremental."""
    for directory, subdirectories, files in os.walk(ROOT):
        relative = Path(directory).relative_to(ROOT)
        if relative == Path("."):
            subdirectories[:] = [d for d in subdirectories if d not in ("build", ".git")]
        for name in files:
            copy_if_changed(Path(directory) / name, mirror / relative / name)
    # The tests look source lines up by their text: they read the checkout's pristine sources,
    # not the mirror's mutated file.
    tests_cmake = mirror / "tests" / "CMakeLists.txt"
    text = tests_cmake.read_text()
    pristine = text.replace('KORVANE_SOURCE_DIR="${PROJECT_SOURCE_DIR}"', f'KORVANE_SOURCE_DIR="{ROOT}"')
    if pristine != text:
        tests_cmake.write_text(pristine)


# Some tests read a logged line's source file through the path the compiler gave it: the mirror's
# builds keep absolute paths, so no compiler cache (which may make them relative) takes part.
BUILD_ENVIRONMENT = dict(os.environ, CCACHE_DISABLE="1")


def run(command, cwd=None, timeout=None):
    return subprocess.run(command, cwd=cwd, timeout=timeout, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace", env=BUILD_ENVIRONMENT)


class Mirror:
    def __init__(self, number):
        self.tree = WORK / f"mirror-{number}"
        self.build = WORK / f"build-{number}"

    def prepare(self, tests):
        sync_mirror(self.tree)
        if not (self.build / "build.ninja").exists():
            configured = run(["cmake", "-S", str(self.tree), "-B", str(self.build), "-G", "Ninja",
                              "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g0",
                              "-DKORVANE_BUILD_TOOLS=OFF", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"])
            if configured.returncode != 0:
                sys.exit(f"configuring {self.build} failed:\n{configured.stdout}")
        built = self.compile(tests)
        if built.returncode != 0:
            sys.exit(f"the unmutated tree does not build in {self.build}:\n{built.stdout[-4000:]}")
        for test in tests:
            outcome = self.run_test(test)
            if outcome != "passed":
                sys.exit(f"{test} does not pass on the unmutated tree ({outcome}): fix that first")

    def compile(self, tests):
        return run(["cmake", "--build", str(self.build), "--target", "KorvaneAPI", *tests])

    def run_test(self, test, show=False):
        try:
            result = run([str(self.build / "tests" / test), "--gtest_brief=1", "--gtest_fail_fast"],
                         cwd=self.build / "tests", timeout=TEST_TIMEOUT)
        except subprocess.TimeoutExpired:
            return "timeout"
        if show and result.returncode != 0:
            print(result.stdout[-6000:])
        return "passed" if result.returncode == 0 else ("crashed" if result.returncode < 0 else "failed")

    def try_mutant(self, mutant, show=False):
        """The mutant's fate: ("killed", test), ("survived", ""), ("uncompilable", "")."""
        target = self.tree / mutant.file
        original = (ROOT / mutant.file).read_text()
        try:
            target.write_text(apply(mutant, original))
            tests = tests_for(Path(mutant.file).name)
            if self.compile(tests).returncode != 0:
                return "uncompilable", ""
            for test in tests:
                outcome = self.run_test(test, show)
                if outcome != "passed":
                    return "killed", f"{test} {outcome}"
            return "survived", ""
        finally:
            target.write_text(original)


# ---------------------------------------------------------------------------------------------
# Running and reporting


def signature(mutant):
    """Identifies a mutant's result across runs: its change and the state of src/ and tests/."""
    digest = hashlib.sha1()
    for part in ("src", "tests", "include", "host"):
        for path in sorted((ROOT / part).rglob("*")):
            if path.is_file():
                digest.update(path.read_bytes())
    return digest.hexdigest()


def load_done(tree_signature):
    done = {}
    if RESULTS.exists():
        for line in RESULTS.read_text().splitlines():
            record = json.loads(line)
            if record.get("tree") == tree_signature:
                done[(record["id"], record["original"], record["replacement"])] = record
    return done


def latest_results():
    latest = {}
    if RESULTS.exists():
        for line in RESULTS.read_text().splitlines():
            record = json.loads(line)
            latest[(record["id"], record["original"], record["replacement"])] = record
    return latest


def killed_by(mutants, tests):
    """The mutants whose latest recorded result names one of `tests` (comma-separated) as their
    killer; SURVIVED and UNCOMPILABLE name the latest survivors and the mutants that did not build."""
    latest = latest_results()
    wanted = set(tests.split(","))

    def last(m):
        record = latest.get((m.id, m.original, m.replacement))
        if record is None:
            return ""
        return {"survived": "SURVIVED", "uncompilable": "UNCOMPILABLE"}.get(record["fate"], record["by"].split(" ")[0])

    return [m for m in mutants if last(m) in wanted]


def describe(mutant):
    first = mutant.original.strip().splitlines()[0] if mutant.original.strip() else ""
    return f"{mutant.file}:{mutant.line}: {mutant.operator}: {first.strip()}"


def run_all(mutants, jobs, tree_signature, resume):
    done = load_done(tree_signature) if resume else {}
    pending = [m for m in mutants if (m.id, m.original, m.replacement) not in done]
    results = [done[(m.id, m.original, m.replacement)] for m in mutants if (m.id, m.original, m.replacement) in done]
    mirrors = queue.Queue()
    every_test = sorted({t for m in pending for t in tests_for(Path(m.file).name)})
    prepared = [Mirror(number) for number in range(jobs if pending else 0)]
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(jobs, 1)) as pool:
        for done in [pool.submit(mirror.prepare, every_test) for mirror in prepared]:
            done.result()
    for mirror in prepared:
        mirrors.put(mirror)
    lock = threading.Lock()

    def one(mutant):
        mirror = mirrors.get()
        try:
            fate, by = mirror.try_mutant(mutant)
        finally:
            mirrors.put(mirror)
        record = dict(asdict(mutant), fate=fate, by=by, tree=tree_signature)
        with lock:
            results.append(record)
            with RESULTS.open("a") as out:
                out.write(json.dumps(record) + "\n")
            mark = {"killed": "killed by " + by, "survived": "SURVIVED", "uncompilable": "does not compile"}[fate]
            print(f"[{len(results)}/{len(mutants)}] {mutant.id} {describe(mutant)}: {mark}", flush=True)

    with concurrent.futures.ThreadPoolExecutor(max_workers=max(jobs, 1)) as pool:
        for future in [pool.submit(one, m) for m in pending]:
            future.result()
    return results


def report(results):
    survivors = [r for r in results if r["fate"] == "survived"]
    killed = sum(r["fate"] == "killed" for r in results)
    uncompilable = sum(r["fate"] == "uncompilable" for r in results)
    print("\nSurvivors:")
    for r in sorted(survivors, key=lambda r: (r["file"], r["line"])):
        first_line = r["original"].strip().splitlines()[0]
        mutated = " / ".join(part.strip() for part in r["replacement"].strip().splitlines()) or "(deleted)"
        print(f"  {r['id']:28} {r['file']}:{r['line']}: {r['operator']}: {first_line} => {mutated}")
    compiled = len(results) - uncompilable
    score = 100.0 * killed / compiled if compiled else 0.0
    print(f"\nScore: {killed}/{compiled} killed ({score:.1f}%), {len(survivors)} survived, "
          f"{uncompilable} did not compile (not counted)")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*", help="files of src/ to mutate (default: all)")
    parser.add_argument("--list", action="store_true", help="print the mutants without running them")
    parser.add_argument("--id", help="run this mutant (FILE:N as --list prints it) and show the failing test's "
                                     "output; several, comma-separated, run as a batch")
    parser.add_argument("--jobs", type=int, default=1, help="mirrors building and testing side by side")
    parser.add_argument("--resume", action="store_true", help="reuse results of an earlier run over the same tree")
    parser.add_argument("--killed-by", metavar="TEST[,TEST]",
                        help="only the mutants these tests killed in the latest recorded results (after folding "
                             "or removing cases of a test: does another still kill them?); SURVIVED, UNCOMPILABLE")
    parser.add_argument("--report", action="store_true",
                        help="the survivors and score from the latest recorded result of each mutant, no run")
    options = parser.parse_args()

    files = source_files(options.files)
    ids = options.id.split(",") if options.id else []
    if ids:
        names = {i.split(":")[0] for i in ids}
        files = [f for f in source_files([]) if Path(f).name in names]
    mutants = [m for f in files for m in mutants_of(f)]
    if options.killed_by:
        mutants = killed_by(mutants, options.killed_by)
    if ids:
        mutants = [m for m in mutants if m.id in ids]
        if len(mutants) != len(ids):
            sys.exit(f"no mutant {options.id}")
    if options.report:
        latest = latest_results()
        report([latest[(m.id, m.original, m.replacement)] for m in mutants
                if (m.id, m.original, m.replacement) in latest])
        return
    if options.list:
        for m in mutants:
            print(f"{m.id:28} {describe(m)}  =>  {m.replacement.strip() or '(deleted)'}")
        print(f"{len(mutants)} mutants")
        return
    if len(ids) == 1:
        mirror = Mirror(0)
        mirror.prepare(tests_for(Path(mutants[0].file).name))
        print(describe(mutants[0]), "=>", mutants[0].replacement.strip() or "(deleted)")
        print(*mirror.try_mutant(mutants[0], show=True))
        return
    WORK.mkdir(parents=True, exist_ok=True)
    report(run_all(mutants, options.jobs, signature(None), options.resume))


if __name__ == "__main__":
    main()
