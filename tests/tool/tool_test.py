"""End-to-end tests of the korvane tool as its users meet it: the --json lines against the
schema, the exit status and messages of every way a run can end, and the shell on a terminal
(Ctrl-C, Ctrl-D, history). Run: tool_test.py KORVANE SOURCE_DIR [TestClass...]."""
import json
import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

KORVANE = ""
SOURCE = ""


def korvane(*args, stdin=None, stdout=subprocess.PIPE, env=None, cwd=None):
    return subprocess.run([KORVANE, *args], input=stdin, stdout=stdout, stderr=subprocess.PIPE, env=env, cwd=cwd,
                          timeout=120)


def script(path):
    return os.path.join(SOURCE, path)


class JsonOutput(unittest.TestCase):
    """Every line on standard output is a JSON object of the schema, typed, valid UTF-8."""

    @classmethod
    def setUpClass(cls):
        schema = pathlib.Path(script("tools/korvane/korvane-json.schema.json")).read_text()
        cls.validator = jsonschema.Draft7Validator(json.loads(schema))

    def objects(self, *args, stdin=None, status=0, cwd=None):
        run = korvane("--json", "--log-level", "Off", *args, stdin=stdin, cwd=cwd)
        self.assertEqual(run.returncode, status, run.stderr)
        lines = run.stdout.split(b"\n")
        self.assertEqual(lines[-1], b"", "the output ends with a newline")
        objects = [json.loads(line.decode("utf-8")) for line in lines[:-1]]  # decode raises on invalid UTF-8
        for value in objects:
            self.validator.validate(value)
        return objects

    def test_every_subcommand_prints_schema_objects(self):
        tour = self.objects("run", "examples/tour.krv", cwd=SOURCE)  # its image is examples/data/shapes.png
        self.assertGreater(len(tour), 100)
        self.assertIn({"version": 1, "type": "status", "line": 15, "text": "Measuring 3 objects"}, tour)
        self.assertTrue(all(o["ok"] for o in tour if o["type"] == "call"))
        self.assertIn("quit", [o["name"] for o in self.objects("help") if o["kind"] == "statement"])
        self.assertEqual(self.objects("help", "getSieveList")[0]["fails"], "never")
        median = next(o for o in self.objects("commands") if o["name"] == "Median")
        self.assertEqual(median["parameters"][2], {"name": "size", "type": "int", "default": "3", "allowed": "1 to 31"})
        feret = self.objects("feret", "3")[0]["result"]
        self.assertEqual(feret["directions"], [[90, 0], [90, 90], [0, 0]])
        self.assertAlmostEqual(feret["kappa"], 3 * (1 - 3 ** -0.5), places=12)
        self.assertEqual(self.objects("--version")[0]["type"], "version")

    def test_results_are_typed(self):
        lines = b"\n".join([
            b'createSieve s 16777216 1.2345678 0.1 -2',
            b'getSieveParams s',
            b'createMorphoLut m 1 -1 0 1 0',
            b'getMorphoLutFlags m',
            b'getMorphoLutDataPtr m',
            b'isValidImageFormula I1',
            b'getExtraMemUsage',
            b'createSegment g',
            b'appendChain g 0 0.5 1 2',
            b'getSegment g 0 0',
            b'getMsrInfo Area',
            b'print caf\xc3\xa9 \xff\xfe \xf0\x9f\x98\x80 \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x82',
            b'sendStatus "bad \xc0\xaf byte"',
            b'fails createFilter f "I1 + Q"',
        ]) + b"\n"
        objects = self.objects("run", "-", stdin=lines)
        results = [o.get("result") for o in objects if o["type"] == "call"]
        # Compared as JSON text: 16777216 as written, not 16777216.0; true, not 1; 0, not false.
        typed = {1: [16777216, 1.2345678, 0.1, -2], 3: {"flag1": 1, "flag2": -1}, 4: {"count": 3, "values": [0, 1, 0]},
                 5: True, 6: 0, 9: {"x1": 0, "y1": 0.5, "x2": 1, "y2": 2}}
        self.assertEqual({i: json.dumps(results[i]) for i in typed}, {i: json.dumps(v) for i, v in typed.items()})
        self.assertEqual(results[10]["unitDim"], 2)
        self.assertEqual(results[11], "caf\u00e9 \\xFF\\xFE \U0001F600 \\xED\\xA0\\x80 \\xF4\\x90\\x80\\x80 \\xE2\\x82")
        status = next(o for o in objects if o["type"] == "status")
        self.assertEqual(status, {"version": 1, "type": "status", "line": 13, "text": "bad \\xC0\\xAF byte"})
        self.assertEqual(objects[-1]["error"], "createFilter failed: formula refused at byte 5: unknown name 'Q' "
                                               "(an image formula reads I1 to I9, X, Y and Z)")
        self.assertEqual(objects[-1]["args"], ["f", "I1 + Q"])

    def test_images_and_tables_are_records(self):
        with tempfile.TemporaryDirectory() as folder:
            out = os.path.join(folder, "t")
            lines = "\n".join([
                "loadImage l " + script("tests/data/labels.png"),
                "imageInfo l",
                "storeTable t label,Area,Mean 1 0.5 -0.1 2 3 1e300",
                "showTable t",
                "exportTable t %s.csv" % out,
                "exportTable t %s.json" % out,
                "runCommand UserFilter output=x filter=none inputs=l",
            ]).encode()
            objects = self.objects("--keep-going", "run", "-", stdin=lines, status=1)
            self.assertEqual(pathlib.Path(out + ".csv").read_text(), "label,Area,Mean\n1,0.5,-0.1\n2,3,1e+300\n")
            table = json.loads(pathlib.Path(out + ".json").read_text())
        self.assertEqual(objects[1]["result"], {"nx": 8, "ny": 5, "nz": 1, "type": "uint8", "voxel_size": [1, 1, 1],
                                                "bytes": 40})
        self.assertEqual(objects[3]["result"], {"name": "t", "columns": ["label", "Area", "Mean"],
                                                "rows": [[1, 0.5, -0.1], [2, 3, 1e300]]})
        self.assertEqual(table, objects[3]["result"])
        self.assertEqual(objects[6]["error"], 'runCommand failed: UserFilter: no filter named "none"')

    def test_failures_are_objects_with_call_and_arguments(self):
        errors = self.objects("--keep-going", "run", script("tests/scripts/json_errors.krv"), status=1)
        self.assertEqual([o["ok"] for o in errors], [True, True, True, False, False, False])
        self.assertEqual((errors[5]["call"], errors[5]["args"]), ("setExtraMemUsage", ["12x"]))
        start = self.objects("--settings", "/nonexistent", "run", "-", status=2)
        self.assertEqual(start, [{"version": 1, "type": "error", "call": "run", "args": ["-"], "ok": False,
                                  "error": "settings folder /nonexistent does not exist", "exit_status": 2}])
        usage = self.objects("--bogus", "shell", status=2)
        self.assertEqual(usage[0]["args"], ["--json", "--log-level", "Off", "--bogus", "shell"])
        self.assertEqual(self.objects("help", "nosuchcall", status=2)[0]["call"], "help")


class ExitStatus(unittest.TestCase):
    """0 success, 1 a failed line, 2 a usage error; every message starts with "korvane:"."""

    def check(self, args, status, message, stdin=None, stdout=subprocess.PIPE):
        run = korvane(*args, stdin=stdin, stdout=stdout)
        self.assertEqual(run.returncode, status, run.stderr)
        if message:
            self.assertRegex(run.stderr.decode(), "(?m)^korvane: " + message)
        return run

    def test_usage_errors(self):
        self.check(["run", SOURCE], 2, "cannot read .*: Is a directory$")
        self.check(["run", script("missing.krv")], 2, "cannot read .*: No such file or directory$")
        self.check(["--settings", script("none"), "commands"], 2, "settings folder .* does not exist$")
        self.check(["--settings", script("README.md"), "commands"], 2, "settings folder .* is not a folder$")
        self.check(["--bogus", "run", "-"], 2, "The following argument was not expected: --bogus")
        self.check(["--log-level", "Loud", "shell"], 2, "--log-level: Loud not in")
        self.check(["feret"], 2, "N is required")
        self.check([], 2, "A subcommand is required")
        self.check(["help", "nosuchcall"], 2, 'unknown call "nosuchcall"')
        version = self.check(["--version"], 0, None)
        self.assertRegex(version.stdout.decode(), r"^korvane \d+\.\d+\.\d+\n$")

    def test_failed_lines_output_and_loggers(self):
        self.check(["run", script("tests/scripts/unmet_expectation.krv")], 1, r".*unmet_expectation.krv:\d+: expected")
        self.check(["shell"], 1, 'line 2: unknown call "bogus"', stdin=b"createSieve a 1\nbogus\nprint after\n")
        self.check(["shell"], 0, None, stdin=b"\xef\xbb\xbfcreateSieve a 1\nquit\nbogus\n")
        with open("/dev/full", "wb") as full:
            self.check(["run", script("tests/scripts/core.krv")], 1, "cannot write standard output", stdout=full)
            self.check(["--json", "feret", "20"], 1, "cannot write standard output", stdout=full)
        # --log-level Debug shows the suite's loggers too.
        run = self.check(["--log-level", "Debug", "run", "-"], 1, r"<stdin>:1: createFilter failed: formula refused",
                         stdin=b'createFilter f "I1 + Q"\n')
        self.assertRegex(run.stderr.decode(), r"debug Korvane.Formula: Formula refused at byte 5")


class Completion(unittest.TestCase):
    """The bash completion offers the options, subcommands and calls; the man page names every
    option and subcommand that --help lists."""

    def complete(self, *words):
        source = script("tools/korvane/korvane.bash-completion")
        line = 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _korvane; echo "${COMPREPLY[*]}"'
        run = subprocess.run(["bash", "-c", line, source, KORVANE, *words], stdout=subprocess.PIPE, check=True)
        return run.stdout.decode().split()

    def test_completion_and_man_page(self):
        self.assertEqual(self.complete("getSie"), [])
        self.assertEqual(self.complete("co"), ["commands"])
        self.assertEqual(self.complete("--log-level", "Debug", "help", "getSie"), ["getSieveList", "getSieveParams"])
        self.assertEqual(self.complete("help", "q"), ["quit"])
        self.assertEqual(self.complete("--log-level", "E"), ["Error"])
        self.assertEqual(self.complete("feret", "3", "--"), ["--vectors", "--svg"])
        usage = korvane("--help").stdout.decode()
        man = pathlib.Path(script("tools/korvane/korvane.1")).read_text().replace("\\-", "-")
        for name in re.findall(r"(?m)^\s+(--?[a-z][-a-z]*|[a-z]+)\b", usage.split("Options:", 1)[1]):
            self.assertTrue(name in man, name + " is missing in the man page")
            if name.startswith("-"):
                self.assertIn(name, self.complete(name[:3]) + self.complete("feret", "1", name[:3]))


class Shell(unittest.TestCase):
    """The shell on a terminal: Ctrl-C stops a call or clears the line, Ctrl-D leaves, the
    history keeps the last 1,000 lines."""

    def setUp(self):
        self.home = tempfile.TemporaryDirectory()
        self.history = pathlib.Path(self.home.name, ".korvane_history")
        self.history.write_text("_HiStOrY_V2_\n" + "".join("old%d\n" % i for i in range(1500)))
        env = dict(os.environ, HOME=self.home.name, TERM="xterm")
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            # Whatever the test runner blocked or ignored, the shell starts as from a terminal.
            signal.pthread_sigmask(signal.SIG_SETMASK, [])
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                signal.signal(number, signal.SIG_DFL)
            os.execve(KORVANE, [KORVANE, "--log-level", "Off", "shell"], env)
        self.seen = b""

    def tearDown(self):
        try:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        except (ProcessLookupError, ChildProcessError):
            pass
        os.close(self.fd)
        self.home.cleanup()

    def read(self, until, what):
        """Adds what the terminal shows to self.seen until until() holds, True then; False once the
        shell has closed the terminal. After 60 s it fails, naming what it waited for."""
        deadline = time.monotonic() + 60
        while not until():
            ready, _, _ = select.select([self.fd], [], [], max(0.0, deadline - time.monotonic()))
            self.assertTrue(ready, "waiting for %s, saw %r" % (what, self.seen[-400:]))
            try:
                chunk = os.read(self.fd, 4096)
            except OSError:
                chunk = b""
            if not chunk:
                return False
            self.seen += chunk
        return True

    def wait_for(self, pattern):
        """Reads the terminal until the pattern shows in what arrived since the last match."""
        found = lambda: re.search(pattern, self.seen)
        self.assertTrue(self.read(found, pattern), "the shell ended; saw %r" % self.seen[-400:])
        before, self.seen = self.seen[:found().end()], self.seen[found().end():]
        return before

    def exit_status(self):
        """The shell's exit status, once it has closed the terminal; 60 s at most."""
        self.read(lambda: False, "the end")
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def type_line(self, text):
        os.write(self.fd, text.encode() + b"\r")

    def at_prompt(self, text):
        self.wait_for(rb"korvane> ")
        self.type_line(text)

    def test_interrupt_history_and_end(self):
        # A 1000x1000 PNG of zeros and a table that flips every pixel, until stable: a command that
        # never ends by itself.
        sys.path.insert(0, script("fuzz"))
        from make_image_corpus import png as make_png
        png = os.path.join(self.home.name, "zeros.png")
        pathlib.Path(png).write_bytes(make_png(1000, 1000, 8, lambda x, y: 0))
        self.at_prompt("createSegment s")
        self.at_prompt("appendRings s 3000000 8")
        self.wait_for(rb"Building rings \d+/3000000")
        os.write(self.fd, b"\x03")
        shown = self.wait_for(rb"korvane> ")
        self.assertRegex(shown, rb"\r\x1b\[K[^\[]*korvane: line 2: appendRings interrupted\r\n")
        self.type_line("getNbChain s")
        chains = int(self.wait_for(rb"\r\n(\d+)\r\n").split(b"\r\n")[-2])
        self.assertTrue(0 < chains < 3000000, chains)
        self.wait_for(rb"korvane> ")
        os.write(self.fd, b"createSieve typed_then_cleared 1")
        os.write(self.fd, b"\x03")
        self.at_prompt("getSieveList")
        self.type_line("print listed")
        self.assertNotIn(b"typed_then_cleared\r\n", self.wait_for(rb"listed\r\n"))
        # An interrupted command stores nothing; the line Ctrl-C cleared has no number.
        self.at_prompt("loadImage zeros " + png)
        self.at_prompt("createMorphoLut flip 0 0 " + " ".join("0" if i & 16 else "1" for i in range(512)))
        self.at_prompt("runCommand MorphoLut input=zeros output=flipped lut=flip")
        time.sleep(1)
        os.write(self.fd, b"\x03")
        self.assertRegex(self.wait_for(rb"korvane> "), rb"korvane: line 8: runCommand interrupted\r\n")
        self.type_line("getImageList")
        self.type_line("print listed")
        self.assertNotIn(b"flipped", self.wait_for(rb"\r\nlisted\r\n"))
        # Tab puts a name with blanks in quotes, so that the line removes that filter.
        self.at_prompt('createFilter "my filter" I1')
        self.wait_for(rb"korvane> ")
        os.write(self.fd, b"removeFilter my\t")
        self.wait_for(rb'"my filter" ')
        self.type_line("")
        self.type_line("")  # an empty line, which the history does not keep
        self.type_line("getFilterList")
        self.type_line("print end")
        self.assertNotIn(b"my filter\r\n", self.wait_for(rb"\r\nend\r\n"))
        self.wait_for(rb"korvane> ")  # Ctrl-D at the prompt, where a person presses it
        os.write(self.fd, b"\x04")
        self.assertEqual(self.exit_status(), 0)
        lines = self.history.read_text().splitlines()
        self.assertEqual(len(lines), 1001)  # the header and the last 1,000 lines
        self.assertEqual(lines[-4:], ['createFilter\\040"my\\040filter"\\040I1', 'removeFilter\\040"my\\040filter"\\040',
                                      "getFilterList", "print\\040end"])

    def test_terminate_saves_the_history(self):
        self.at_prompt("getSieveList")
        self.wait_for(rb"korvane> ")
        # The signal lands while the editor redraws a long half-typed line: it must still end
        # the shell, and the half-typed line is no history.
        os.write(self.fd, b"createSieve " + b"x" * 3000)
        os.kill(self.pid, signal.SIGTERM)
        self.assertEqual(self.exit_status(), 128 + signal.SIGTERM)
        self.assertEqual(self.history.read_text().splitlines()[-1], "getSieveList")


if __name__ == "__main__":
    KORVANE, SOURCE = sys.argv[1], sys.argv[2]
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
