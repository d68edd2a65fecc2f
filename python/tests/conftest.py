# Shared fixtures: a settings folder of the test's own and a running session on it.
import pytest

import korvane


@pytest.fixture
def settings(tmp_path):
    (tmp_path / "log").mkdir()
    (tmp_path / "Tarsel.ini").write_text("[Logging]\nLevel = Debug\nFolder = log\n")
    return tmp_path


@pytest.fixture
def suite(settings):
    with korvane.session(settings):
        yield settings
