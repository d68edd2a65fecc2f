# Shared fixtures: a settings folder of the test's own and a running session on it; and the
# helpers that hold a log line to the statement that writes it.
import os
import pathlib
import re

import pytest

import korvane

SOURCE = pathlib.Path(os.environ.get("KORVANE_SOURCE_DIR", pathlib.Path(__file__).parents[2]))


def source_line(path, text):
    lines = [number for number, line in enumerate((SOURCE / path).read_text().splitlines(), 1) if text in line]
    assert len(lines) == 1
    return lines[0]


def logged(settings, message):
    """(level, file, line) of each line of the suite's log with this message."""
    found = []
    for line in (settings / "log" / "Korvane.log").read_text().splitlines():
        match = re.fullmatch(r"\S+ \S+ (\w+) +\S+: (.*) \((\S+):(\d+)\)", line)
        if match and match[2] == message:
            found.append((match[1], match[3], int(match[4])))
    return found


@pytest.fixture
def settings(tmp_path):
    (tmp_path / "log").mkdir()
    (tmp_path / "Tarsel.ini").write_text("[Logging]\nLevel = Debug\nFolder = log\n")
    return tmp_path


@pytest.fixture
def suite(settings):
    with korvane.session(settings):
        yield settings
