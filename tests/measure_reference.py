"""Reference measurements by scikit-image for tests/measure_objects_test.cpp; with `samples` after
OUT, the sample images' voxels and folder only, for tests/image_test.cpp.

Writes into OUT, as raw little-endian values: for each case a label image (int32), a grey image
(its own type) and each column of the regionprops of every object (float64, NAME.COLUMN);
cases.txt lists each case as `name nx ny nz greytype`. Run with Debian's python3 (python3-skimage)."""
import sys

import numpy as np
from skimage import data, filters, measure

OUT = sys.argv[1]
PROPS_2D = ["label", "area", "centroid", "bbox", "equivalent_diameter", "euler_number",
            "mean_intensity", "min_intensity", "max_intensity", "perimeter_crofton", "feret_diameter_max"]
PROPS_3D = ["label", "area", "centroid", "bbox", "equivalent_diameter", "euler_number",
            "mean_intensity", "min_intensity", "max_intensity", "feret_diameter_max"]
cases = []


def write(name, labels, grey, props):
    labels = labels.astype("<i4")
    labels.tofile(f"{OUT}/{name}.labels")
    grey.astype(grey.dtype.newbyteorder("<")).tofile(f"{OUT}/{name}.grey")
    for key, column in measure.regionprops_table(labels, intensity_image=grey, properties=props).items():
        np.asarray(column, dtype="<f8").tofile(f"{OUT}/{name}.{key}")
    shape = labels.shape[::-1] + (1,) * (3 - labels.ndim)  # x, y, z
    cases.append(f"{name} {shape[0]} {shape[1]} {shape[2]} {grey.dtype.name}")


def planar(name, image, mask):
    write(name, measure.label(mask, connectivity=2), image, PROPS_2D)


coins, cell = data.coins(), data.cell()
if sys.argv[2:] == ["samples"]:  # for tests/image_test.cpp: the sample images' voxels and folder
    coins.tofile(f"{OUT}/coins.grey"), cell.tofile(f"{OUT}/cell.grey")
    with open(f"{OUT}/data_dir", "w") as f:
        f.write(data.data_dir + "\n")
    sys.exit()
planar("coins", coins, coins > filters.threshold_otsu(coins))
# cell: one object under a global threshold, a local one separates them
planar("cell", cell, cell > filters.threshold_local(cell, 51))
blobs = data.binary_blobs(length=48, n_dim=3, volume_fraction=0.25, seed=17)
rng = np.random.default_rng(17)
grey = filters.gaussian(rng.random(blobs.shape), sigma=2).astype(np.float32)
write("blobs", measure.label(blobs, connectivity=3), grey, PROPS_3D)
with open(f"{OUT}/cases.txt", "w") as f:
    f.write("\n".join(cases) + "\n")

