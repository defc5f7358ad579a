# SPDX-License-Identifier: MIT
import os
import shutil

import numpy as np
import pytest


def parts_scene(width=160, height=120):
    """Dark parts on a light ground: two filled rectangles, a ring (a disc with a hole) and a speck."""
    img = np.full((height, width), 200, dtype=np.uint8)
    img[10:30, 10:40] = 20                      # 30 x 20 rectangle
    img[50:60, 100:105] = 40                    # 5 x 10 rectangle
    yy, xx = np.mgrid[0:height, 0:width]
    r2 = (xx - 60) ** 2 + (yy - 80) ** 2
    img[(r2 <= 20 ** 2) & (r2 > 8 ** 2)] = 10   # ring: one object with one hole
    img[5, 150] = 0                             # a one-pixel part
    return img


def noise(width, height, seed=1):
    return np.random.default_rng(seed).integers(0, 256, size=(height, width), dtype=np.uint8)


@pytest.fixture
def scene():
    return parts_scene()


@pytest.fixture
def ombrel_program(monkeypatch):
    """The command-line program of the same build, or skip when it was not built."""
    build = os.environ.get("OMBREL_BUILD_DIR", "")
    path = os.path.join(build, "apps", "ombrel")
    if not (build and os.access(path, os.X_OK)):
        pytest.skip("the ombrel program is not built")
    # A sanitizer build preloads its runtime into this interpreter; the program links its own, and two
    # runtimes in one process refuse to start.
    monkeypatch.delenv("LD_PRELOAD", raising=False)
    return path
