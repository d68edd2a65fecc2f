# The callbacks as Python callables: progress while the suite works, errors reported and kept
# out of the suite, a flush answering False stopping the work, from other threads too.
import threading

import numpy as np
import pytest

import korvane


@pytest.fixture
def rings(suite):
    assert korvane.createSegment("rings")
    yield "rings"
    for setter in (korvane.setFlushEventsCB, korvane.setProgressMsgCB, korvane.setProgressRatioCB):
        setter(None)


def test_progress_reaches_both_callables(rings):
    messages, ratios, flushes = [], [], []
    korvane.setProgressMsgCB(messages.append)
    korvane.setProgressRatioCB(ratios.append)
    korvane.setFlushEventsCB(lambda: flushes.append(1))  # None: go on
    assert korvane._suite.appendRings(rings, 10, 4, 0, 0, 1) == 10
    assert messages[-1] == "Building rings 10/10" and len(messages) == len(ratios) == 10
    assert ratios[0] == pytest.approx(0.1) and ratios[-1] == 1.0 and len(flushes) == 10

    korvane.setProgressMsgCB(None)
    korvane.setProgressRatioCB(None)
    korvane.setFlushEventsCB(None)
    assert korvane._suite.appendRings(rings, 3, 4, 0, 0, 1) == 3
    assert len(messages) == 10 and len(flushes) == 10
    with pytest.raises(TypeError, match="callable"):
        korvane.setProgressMsgCB(42)


def test_a_failing_callback_is_reported_and_work_goes_on(rings, monkeypatch):
    reported = []
    monkeypatch.setattr("sys.unraisablehook", lambda report: reported.append(report))

    def broken(*args):
        raise ZeroDivisionError("from the callback")

    for setter in (korvane.setFlushEventsCB, korvane.setProgressMsgCB, korvane.setProgressRatioCB):
        setter(broken)
    assert korvane._suite.appendRings(rings, 2, 4, 0, 0, 1) == 2
    assert len(reported) == 6
    assert all(isinstance(report.exc_value, ZeroDivisionError) for report in reported)
    assert {report.object for report in reported} == {
        "korvane flush events callback", "korvane progress message callback", "korvane progress ratio callback"}


def test_flush_answering_false_stops_the_work(rings):
    answers = iter([True, True, False])
    korvane.setFlushEventsCB(lambda: next(answers))
    assert korvane._suite.appendRings(rings, 10, 4, 0, 0, 1) == 3
    assert korvane.getNbChain(rings) == 3


def test_another_thread_cancels_the_running_work(rings):
    started, cancel = threading.Event(), threading.Event()

    def flush():
        started.set()
        return not cancel.is_set()

    korvane.setFlushEventsCB(flush)
    korvane.setProgressMsgCB(lambda message: cancel.wait(10))  # holds the work until cancelled
    appended = []
    worker = threading.Thread(target=lambda: appended.append(korvane._suite.appendRings(rings, 1000, 4, 0, 0, 1)))
    worker.start()
    assert started.wait(10)
    assert korvane.getNbChain(rings) >= 0  # the module stays usable while the work runs
    with pytest.raises(korvane.Error, match="while work runs"):
        korvane.endKorvaneAPI()
    cancel.set()
    worker.join(10)
    assert not worker.is_alive() and appended[0] < 1000 and korvane.getNbChain(rings) == appended[0]


# Long work in one thread, the progress callables swapped and cleared in another all along, and a
# third thread cancelling by replacing the flush callable: no deadlock, the work stops at the next
# flush, and what it made is either whole or not there.
LONG_WORKS = {
    "command": (lambda: korvane.runCommand("Median", input="big", output="smoothed", size=5),
                lambda answer: answer is False and korvane.getImageList() == ["big"]),
    "rings": (lambda: korvane._suite.appendRings("rings", 1000, 64, 0, 0, 1),
              lambda answer: answer == 2 and korvane.getNbChain("rings") == answer),
}


@pytest.mark.parametrize("work", LONG_WORKS)
def test_threads_swapping_and_cancelling_during_long_work(rings, work):
    run, stopped_cleanly = LONG_WORKS[work]
    assert korvane.putImage("big", np.random.default_rng(1).integers(0, 255, (24, 128, 128), np.uint8))
    working, cancelled, swapped, finished = (threading.Event() for _ in range(4))
    korvane.setFlushEventsCB(lambda: working.set() or cancelled.wait(10))  # holds the work until cancelled
    answers, messages = [], []

    def swap_callables():
        count = 0
        while not finished.is_set():
            korvane.setProgressMsgCB(messages.append if count % 2 else None)
            korvane.setProgressRatioCB(None if count % 2 else messages.append)
            count += 1
            if count == 200:
                swapped.set()

    def cancel():
        assert working.wait(10) and swapped.wait(10)
        korvane.setFlushEventsCB(lambda: False)  # the next flush of the running work answers this
        cancelled.set()

    threads = [threading.Thread(target=lambda: answers.append(run())), threading.Thread(target=swap_callables),
               threading.Thread(target=cancel)]
    for thread in threads:
        thread.start()
    threads[0].join(30)
    finished.set()
    for thread in threads[1:]:
        thread.join(10)
    assert not any(thread.is_alive() for thread in threads)
    assert len(answers) == 1 and stopped_cleanly(answers[0]), answers
    korvane.setFlushEventsCB(None)
    assert korvane.runCommand("Median", input="big", output="smoothed", size=3)  # usable again
