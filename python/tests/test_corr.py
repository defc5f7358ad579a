# SPDX-License-Identifier: MIT
"""Correlation from Python: scores equal OpenCV's normalised correlation coefficient, in magnitude."""
import cv2
import numpy as np
import pytest

import ombrel
from conftest import noise


def test_match_scores_equal_opencv_ccoeff_normed_and_find_the_pattern():
    img = cv2.GaussianBlur(noise(90, 70, seed=16), (5, 5), 0)
    patch = img[30:46, 50:70].copy()
    tpl = ombrel.CorrTemplate(img, roi=(50, 30, 20, 16))
    assert (tpl.width, tpl.height, tpl.hot_spot, tpl.count) == (20, 16, (0, 0), 320)
    agent = ombrel.CorrMatchAgent(img, tpl)
    agent.go()
    theirs = cv2.matchTemplate(img, patch, cv2.TM_CCOEFF_NORMED).astype(np.float64)
    assert agent.scores.shape == theirs.shape
    assert np.allclose(agent.scores, np.abs(theirs), atol=1e-4)
    assert agent.best[:2] == (50, 30) and agent.best[2] == pytest.approx(1.0)
    assert ombrel.match(img, patch, n=1)[0][:2] == (50, 30)
    # An inverted pattern scores 1 as well; a hot spot moves the reported point.
    assert ombrel.match(255 - img, patch)[0][:2] == (50, 30)
    assert ombrel.match(img, patch, hot_spot=(10, 8))[0][:2] == (60, 38)


def test_match_steps_regions_and_refusals():
    img = cv2.GaussianBlur(noise(64, 48, seed=17), (3, 3), 0)
    agent = ombrel.CorrMatchAgent(img, ombrel.CorrTemplate(img, roi=(10, 10, 8, 8)), roi=(4, 4, 20, 12), step=(2, 3))
    agent.go()
    assert agent.scores.shape == (4, 10) and agent.best[:2] == (10, 10)
    top = agent.top(3, min_distance=5.0)
    assert len(top) == 3 and all((a[0] - b[0]) ** 2 + (a[1] - b[1]) ** 2 >= 25 for a in top for b in top if a != b)
    with pytest.raises(ValueError, match="larger"):
        ombrel.match(img[:5, :5], img[:8, :8])
    with pytest.raises(ValueError, match="inside"):
        ombrel.CorrTemplate(img, roi=(60, 0, 10, 10))


@pytest.mark.parametrize("kernel", [np.ones((3, 3), np.uint8), np.array([[1, 2, 1], [0, 0, 0], [-1, -2, -1]], np.int8),
                                    np.arange(1, 16, dtype=np.uint8).reshape(3, 5)])
def test_convolution_matches_a_numpy_sum_of_products(kernel):
    img = noise(40, 30, seed=18)
    out = ombrel.conv(img, kernel)
    kh, kw = kernel.shape
    k = kernel.astype(np.int64)
    acc = sum(k[y, x] * img[y:30 - kh + 1 + y, x:40 - kw + 1 + x].astype(np.int64) for y in range(kh) for x in range(kw))
    shift = int(np.sqrt((k ** 2).sum())).bit_length()
    assert np.array_equal(out, ((acc >> shift) & 255).astype(np.uint8))
    sampled = ombrel.conv(img, kernel, step=(2, 3))
    assert np.array_equal(sampled, out[::3, ::2])
