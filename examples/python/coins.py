"""The coins of scikit-image's sample image measured from Python, as examples/coins.krv does with
the korvane tool: smoothing, Otsu's threshold, holes filled, specks removed, objects labelled, a
group of native and user measures, a sieve into size classes. The measures are checked against
scikit-image's own on the same labels.

    PYTHONPATH=build/debug/python /usr/bin/python3 examples/python/coins.py
"""
import numpy as np
from skimage import data
from skimage.measure import regionprops

import korvane


def analyse():
    delivered = {}  # the tables the suite delivers, by name, as an application's spreadsheet receives them
    korvane.setResultTarget(delivered.__setitem__)
    korvane.putImage("coins", data.coins())
    for command, parameters in (
            ("SmoothGauss", dict(input="coins", output="smooth", sigma=1.5)),
            ("AutoThreshold", dict(input="smooth", output="mask", method="otsu")),
            ("FillHoles", dict(input="mask", output="filled")),
            ("RemoveSmall", dict(input="filled", output="clean", minimum=150)),
            ("Label", dict(input="clean", output="labels", connectivity=8))):
        korvane.runCommand(command, **parameters)

    korvane.createUsrMsrByFormula("Roundness", "4 * pi * Area / Perimeter ^ 2", 5)
    korvane.createUsrMsrByIPFunction("Brightness", "MeanIntensity", 5)
    korvane.addMsrGrp("coins")
    for measure in ("Area", "EqDiameter", "Perimeter", "FeretMax", "Brightness", "Roundness"):
        korvane.addMsrToMsrGrp("coins", measure)
    table = korvane.measure("labels", "coins", grey="coins")

    korvane.runCommand("Measure", labels="labels", group="coins", grey="coins", result="Coins")
    korvane.createSieve("sizes", [40, 45, 50, 55, 60])
    korvane.runCommand("SieveClasses", table="Coins", measure="EqDiameter", sieve="sizes", result="Sizes")
    # The labels without a copy: the view keeps the stored voxels after the session ends.
    return table, delivered["SizesCounts"], korvane.getImage("labels", copy=False)


def check(table, counts, labels):
    regions = regionprops(labels, intensity_image=data.coins())
    np.testing.assert_array_equal(table["label"], [region.label for region in regions])
    np.testing.assert_array_equal(table["Area"], [region.area for region in regions])
    np.testing.assert_allclose(table["EqDiameter"], [region.equivalent_diameter for region in regions])
    np.testing.assert_allclose(table["Brightness"], [region.mean_intensity for region in regions], rtol=1e-6)
    assert counts["Count"].tolist() == [6, 6, 5, 1, 2, 2]


if __name__ == "__main__":
    with korvane.session():
        table, counts, labels = analyse()
    check(table, counts, labels)
    print(f"{len(table['label'])} coins; by equivalent diameter: {counts['Count'].astype(int).tolist()}")
    for label, area, roundness in zip(table["label"], table["Area"], table["Roundness"]):
        print(f"coin {label:3.0f}: area {area:6.0f} px, roundness {roundness:.3f}")
