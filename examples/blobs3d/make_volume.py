#!/usr/bin/python3
"""Writes blobs3d.tif: scikit-image's binary_blobs in 3-D with a fixed seed, 80^3 uint8 voxels
(0 and 255), anisotropic voxels of 0.5 x 0.5 x 1.0 (the suite reads "voxel_size=X Y Z" from the
TIFF's ImageDescription). Usage: make_volume.py [OUTPUT.tif]"""
import sys

import numpy as np
import tifffile
from skimage.data import binary_blobs

volume = binary_blobs(length=80, n_dim=3, volume_fraction=0.1, blob_size_fraction=0.1, seed=2026)
output = sys.argv[1] if len(sys.argv) > 1 else "blobs3d.tif"
tifffile.imwrite(output, volume.astype(np.uint8) * 255, description="voxel_size=0.5 0.5 1")
