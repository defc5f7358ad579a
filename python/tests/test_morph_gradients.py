# SPDX-License-Identifier: MIT
"""Morphology, gradients and inspection tools from Python, cross-checked with OpenCV where it is exact."""
import cv2
import numpy as np
import pytest

import ombrel
from conftest import noise


@pytest.mark.parametrize("op, theirs", [("erode", cv2.erode), ("dilate", cv2.dilate)])
@pytest.mark.parametrize("size", [(3, 3), (7, 5), (1, 9)])
def test_grey_erosion_and_dilation_match_opencv(op, theirs, size):
    img = noise(83, 59, seed=11)
    kernel = np.ones((size[1], size[0]), np.uint8)
    assert np.array_equal(ombrel.graymorph(img, op, element=size), theirs(img, kernel))


def test_grey_morphology_with_a_shaped_element_and_compositions():
    img = noise(64, 48, seed=12)
    cross = cv2.getStructuringElement(cv2.MORPH_CROSS, (5, 5))
    assert np.array_equal(ombrel.graymorph(img, "erode", element=cross), cv2.erode(img, cross))
    opened = ombrel.graymorph(img, "open", element=(3, 3))
    assert np.array_equal(opened, cv2.morphologyEx(img, cv2.MORPH_OPEN, np.ones((3, 3), np.uint8)))
    gradient = ombrel.graymorph(img, "gradient", element=(3, 3))
    k = np.ones((3, 3), np.uint8)
    assert np.array_equal(gradient, cv2.dilate(img, k) - cv2.erode(img, k))
    with pytest.raises(ValueError, match="no member"):
        ombrel.graymorph(img, element=np.zeros((3, 3), np.uint8))


def test_binary_morphology_matches_opencv_away_from_the_border():
    bits = (noise(50, 40, seed=13) > 170).astype(np.uint8)
    k = np.ones((3, 3), np.uint8)
    assert np.array_equal(ombrel.binmorph(bits, "dilate_full"), cv2.dilate(bits, k))
    # Outside reads 1 with border_set, so erosion does not eat in from the edge, like OpenCV's default.
    assert np.array_equal(ombrel.binmorph(bits, "erode_full", border_set=True), cv2.erode(bits, k))
    twice = ombrel.binmorph(bits.astype(bool), "dilate_full", iterations=2)
    assert np.array_equal(twice, cv2.dilate(bits, k, iterations=2))
    agent = ombrel.BinMorphAgent(bits, "copy")
    agent.go()
    assert agent.set_pixels == int(bits.sum())
    with pytest.raises(ValueError, match="unknown name"):
        ombrel.binmorph(bits, "thicken")


def test_sobel_components_match_opencv_inside_the_border():
    img = noise(64, 48, seed=14) // 4
    gx = cv2.Sobel(img, cv2.CV_16S, 1, 0, ksize=3).astype(int)
    gy = -cv2.Sobel(img, cv2.CV_16S, 0, 1, ksize=3).astype(int)  # ours counts y upwards
    dx = ombrel.sobel(img, "dx").view(np.int8)
    dy = ombrel.sobel(img, "dy").view(np.int8)
    inner = (slice(1, -1), slice(1, -1))
    assert np.array_equal(dx[inner], np.clip(gx, -127, 127)[inner])
    assert np.array_equal(dy[inner], np.clip(gy, -127, 127)[inner])
    assert (dx[0] == 0).all() and (dx[:, -1] == 0).all()
    sumabs = ombrel.sobel(img, "sumabs")
    assert np.array_equal(sumabs[inner], (np.abs(np.clip(gx, -127, 127)) + np.abs(np.clip(gy, -127, 127)))[inner])
    agent = ombrel.SobelAgent(img, encoding="absdx", threshold=50)
    agent.go()
    assert agent.strong_count == int((agent.output > 50).sum())
    assert agent.output_sum == int(agent.output.sum())


def test_scene_angle_follows_a_turned_pattern_and_auto_focus_prefers_sharp():
    stripes = np.zeros((128, 128), np.uint8)
    stripes[:, (np.arange(128) // 8) % 2 == 1] = 200

    def turned(degrees):
        return cv2.warpAffine(stripes, cv2.getRotationMatrix2D((64, 64), degrees, 1.0), (128, 128),
                              borderMode=cv2.BORDER_REFLECT)

    a = ombrel.SceneAngleAgent(turned(5), roi=(16, 16, 96, 96))
    b = ombrel.SceneAngleAgent(turned(15), roi=(16, 16, 96, 96))
    a.go()
    b.go()
    assert a.hist.sum() > 0 and a.strength > 0 and 0 < a.coverage < 100
    assert np.degrees(b.angle_diff(a)) == pytest.approx(10, abs=2.5)
    assert a.angle_diff(a) == 0.0
    sharp = ombrel.auto_focus(stripes)
    blurred = ombrel.auto_focus(cv2.GaussianBlur(stripes, (9, 9), 3))
    assert sharp["focus"] > blurred["focus"] > 0
    assert sharp["pixel_sum"] == float(stripes[:-1, :-1].sum())


@pytest.mark.parametrize("iterations", [0, 2, 4])
@pytest.mark.parametrize("xor_mode", [True, False])
def test_break_detection_marks_the_gap_of_a_cut_line_only(iterations, xor_mode):
    line = np.zeros((12, 40), np.uint8)
    line[5, 4:36] = 1
    cut = line.copy()
    cut[5, 18:23] = 0
    for image, expected in [(line, []), (cut, [(21, 5)])]:
        dilated = ombrel.binmorph(image, "dilate_full")
        breaks = ombrel.break_detection(image, line, dilated, iterations=iterations, xor_mode=xor_mode)
        assert [(x, y) for y, x in zip(*np.nonzero(breaks))] == expected


def test_sobel_sampling_sizes_its_output_and_refuses_bad_parameters():
    img = noise(41, 30, seed=15)
    assert ombrel.sobel(img, sparseness=2).shape == (15, 21)
    assert ombrel.sobel(img, sparseness=2**31 - 1).shape == (1, 1)
    with pytest.raises(ValueError, match="sparseness"):
        ombrel.sobel(img, sparseness=0)
    with pytest.raises(ValueError, match="shift"):
        ombrel.sobel(img, shift=8)
    with pytest.raises(ValueError, match="unknown name"):
        ombrel.sobel(img, encoding="magnitude")
