# Run by python_bench (bench/python_bench.cpp), which embeds the interpreter and gives the C++
# side of each pair as the module korvane_bench. Each side is the best of several runs, the runs
# of the two sides interleaved, in the process's CPU time; ratios only mean something from a
# release build.
import time
import timeit

import korvane
import korvane_bench

CALLS = 200_000
RUNS = 7


def python_seconds_per_call(call, *args):
    timer = timeit.Timer("call(*args)", timer=time.process_time, globals={"call": call, "args": args})
    return timer.timeit(CALLS) / CALLS


def best_of_interleaved(python_side, cpp_side, runs=RUNS):
    """The best run of each side; the sides take turns at going first."""
    pythons, cpps = [], []
    for run in range(runs):
        for side in ((python_side, pythons), (cpp_side, cpps))[::1 if run % 2 else -1]:
            side[1].append(side[0]())
    return min(pythons), min(cpps)


def trivial_calls():
    korvane.createSegment("segment object of the benchmark")
    print("%-42s %12s %12s %12s %8s  %s" % ("a trivial call", "Python", "C++", "overhead", "ratio", "goal"))
    for name, python_side, cpp_side in (
            ("getExtraMemUsage()",
             lambda: python_seconds_per_call(korvane.getExtraMemUsage),
             lambda: korvane_bench.getExtraMemUsage_seconds(CALLS)),
            ("getNbChain(name)",
             lambda: python_seconds_per_call(korvane.getNbChain, "segment object of the benchmark"),
             lambda: korvane_bench.getNbChain_seconds("segment object of the benchmark", CALLS))):
        python, cpp = best_of_interleaved(python_side, cpp_side)
        print("%-42s %9.1f ns %9.1f ns %9.1f ns %7.1fx  overhead <= 1000 ns"
              % (name, python * 1e9, cpp * 1e9, (python - cpp) * 1e9, python / cpp))


def measuring():
    korvane_bench.store_ball_volume("labels", "grey")
    korvane.addMsrGrp("balls")
    for measure in ("Volume3d", "CentroidX", "CentroidY", "CentroidZ", "BoundingBoxDx", "BoundingBoxDy",
                    "BoundingBoxDz", "IntensityPercentile"):
        assert korvane.addMsrToMsrGrp("balls", measure), measure
    objects = []

    def python_side():
        timer = timeit.Timer(lambda: objects.append(len(korvane.measure("labels", "balls", grey="grey")["label"])),
                             timer=time.process_time)
        return timer.timeit(1)

    python, cpp = best_of_interleaved(python_side, lambda: korvane_bench.measure_seconds("labels", "grey", "balls")[0],
                                      runs=15)
    assert set(objects) == {korvane_bench.measure_seconds("labels", "grey", "balls")[1]}
    print("\n%-42s %12s %12s %12s %8s  %s" % ("measuring the 256^3 volume", "Python", "C++", "", "ratio", "goal"))
    print("%-42s %9.1f ms %9.1f ms %12s %7.3fx  <= 1.10x"
          % ("%d objects, %d measures" % (objects[0], len(korvane.getMsrGrpMsrList("balls"))), python * 1e3, cpp * 1e3,
             "", python / cpp))


with korvane.session():
    trivial_calls()
    measuring()
