# Sessions and the errors of the module, the library and the suite.
import pytest

import korvane


def test_session_starts_and_ends_the_suite(settings):
    assert not korvane.in_session()
    with korvane.session(settings) as session:
        assert korvane.in_session()
        with pytest.raises(korvane.Error, match="already running"):
            with korvane.session():
                pass
        assert isinstance(session, korvane.session)
    assert not korvane.in_session()
    with korvane.session():  # again, and without settings
        assert korvane.getExtraMemUsage() == 0
    korvane.initKorvaneAPI(str(settings))
    korvane.endKorvaneAPI()


def test_outside_a_session_nothing_reaches_the_suite():
    for call in (korvane.getLutList, korvane.endKorvaneAPI, lambda: korvane.createSieve("s", [1.0])):
        with pytest.raises(korvane.Error, match="no session is running") as raised:
            call()
        assert raised.value.file is None and raised.value.line is None
        assert not isinstance(raised.value, korvane.SuiteError)


def test_suite_exception_is_a_suite_error_with_file_and_line(settings):
    (settings / "Tarsel.ini").write_text("[Progress]\nEnabled = often\n")
    with pytest.raises(korvane.SuiteError, match="is not a whole number") as raised:
        with korvane.session(settings):
            pass
    assert isinstance(raised.value, RuntimeError)
    assert raised.value.file == str(settings / "Tarsel.ini") and raised.value.line == 2
    assert not korvane.in_session()
    with korvane.session():  # the failed start left nothing behind
        pass


def test_the_logger_is_reachable_without_a_session_and_takes_level_names(settings):
    logger = korvane.getKorvaneAPILogger()
    assert logger is korvane.getKorvaneAPILogger() and logger.name.endswith(".KorvaneAPI")
    saved = logger.level
    try:
        logger.level = "warn"
        assert (logger.level, logger.effectiveLevel) == (30000, 30000)
        assert not logger.isEnabledFor("Info") and logger.isEnabledFor(40000)
        for wrong, error in (("loud", ValueError), (-2, ValueError), (True, TypeError), (1.5, TypeError)):
            with pytest.raises(error):
                logger.level = wrong
        assert logger.level == 30000
        logger.level = -1
        assert logger.level == -1
    finally:
        logger.level = saved
