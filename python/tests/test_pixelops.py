# SPDX-License-Identifier: MIT
"""Pixel operations from Python give the C++ agents' bytes and figures, checked against numpy and OpenCV."""
import json
import subprocess

import cv2
import numpy as np
import pytest

import ombrel
from conftest import noise


def test_histogram_counts_match_bincount_and_standard_figures_match_numpy():
    img = noise(97, 61, seed=3)
    h = ombrel.histogram(img)
    assert np.array_equal(h.bins, np.bincount(img.ravel(), minlength=256))
    assert h.count == img.size
    assert h.mean == pytest.approx(img.mean(), rel=1e-12)
    assert h.std == pytest.approx(img.std(), rel=1e-12)
    assert (h.median, h.min, h.max) == (np.median(img), img.min(), img.max())
    assert h.otsu_threshold == int(cv2.threshold(img, 0, 255, cv2.THRESH_BINARY + cv2.THRESH_OTSU)[0])
    # The agent's own figures stay under their names: zero pixels are not counted, the mean is integral.
    nonzero = int((img != 0).sum())
    assert h.pixel_count == nonzero and h.pixel_sum == int(img.sum())
    assert h.agent_mean == float(int(img.sum()) // nonzero)


def test_histogram_over_a_region_a_mask_and_fewer_bins():
    img = noise(80, 60, seed=4)
    roi = (5, 7, 31, 17)
    sub = img[7:24, 5:36]
    assert np.array_equal(ombrel.histogram(img, roi=roi).bins, np.bincount(sub.ravel(), minlength=256))
    keep = noise(31, 17, seed=5) > 128
    masked = ombrel.histogram(img, roi=roi, mask=keep)
    assert np.array_equal(masked.bins, np.bincount(sub[keep], minlength=256))
    assert (masked.count, masked.median) == (keep.sum(), np.median(sub[keep]))  # an even count: mean of two
    coarse = ombrel.histogram(img, bins=16, bin_offset=3)
    assert np.array_equal(coarse.bins[3:], np.bincount(img.ravel() >> 4, minlength=16)[:13])
    # The standard figures are the pixels' own, whatever the bins; signed reads -128..127.
    assert (coarse.mean, coarse.median, coarse.max) == pytest.approx((img.mean(), np.median(img), img.max()))
    signed = ombrel.histogram(img, signed=True)
    as_int8 = img.view(np.int8)
    assert (signed.mean, signed.std, signed.median, signed.min, signed.max) == pytest.approx(
        (as_int8.mean(), as_int8.std(), np.median(as_int8), as_int8.min(), as_int8.max()), rel=1e-12)
    nothing = ombrel.histogram(img, roi=roi, mask=np.zeros((17, 31), bool))
    assert (nothing.count, nothing.mean, nothing.median, nothing.min) == (0, None, None, None)
    assert ombrel.grey_statistics([0, 2, 0, 2]) == {"count": 4, "mean": 2.0, "std": 1.0, "median": 2.0,
                                                     "min": 1, "max": 3}
    with pytest.raises(ValueError, match="bins"):
        ombrel.otsu_threshold(np.ones(257, np.int64))
    with pytest.raises(ValueError, match="bins"):
        ombrel.grey_statistics([1, -1])


def test_histogram_equals_the_ombrel_programs(tmp_path, ombrel_program):
    img = noise(64, 48, seed=9)
    cv2.imwrite(str(tmp_path / "n.png"), img)
    subprocess.run([ombrel_program, "hist", str(tmp_path / "n.png"), "--json", str(tmp_path / "h.json")],
                   check=True, capture_output=True)
    theirs = json.loads((tmp_path / "h.json").read_text())["images"][0]["histogram"]
    ours = ombrel.histogram(img)
    assert ours.bins.tolist() == theirs["counts"]
    for name in ("count", "mean", "std", "median", "min", "max", "otsu_threshold"):
        assert getattr(ours, name) == theirs[name], name
    agent = theirs["agent"]
    assert (ours.pixel_count, ours.pixel_sum) == (agent["pixel_count"], agent["pixel_sum"])
    assert (ours.agent_mean, ours.agent_std_dev, ours.agent_median) == (agent["mean"], agent["std_dev"],
                                                                       agent["median"])


def test_histogram_agent_bins_are_a_view_refilled_per_frame():
    frames = [np.full((8, 8), v, np.uint8) for v in (3, 200)]
    agent = ombrel.HistogramAgent(frames[0])
    bins = agent.bins
    agent.go()
    assert bins[3] == 64
    agent.go(frames[1])
    assert bins[3] == 0 and bins[200] == 64


@pytest.mark.parametrize("op, reference", [
    ("add", lambda a, b: np.minimum(a.astype(int) + b, 255)),
    ("diff", lambda a, b: np.abs(a.astype(int) - b)),
    ("and", lambda a, b: a & b),
    ("xor", lambda a, b: a ^ b),
    ("min", np.minimum),
    ("max", np.maximum),
])
def test_binary_arithmetic_matches_numpy(op, reference):
    a, b = noise(67, 33, seed=1), noise(67, 33, seed=2)
    assert np.array_equal(ombrel.arith(op, a, b), reference(a, b).astype(np.uint8))


def test_arithmetic_gain_offset_region_and_results():
    a = noise(50, 40, seed=6)
    out = ombrel.arith("copy", a, gain=0.5, offset=10)
    assert np.array_equal(out, (a.astype(int) // 2 + 10).astype(np.uint8))
    assert np.array_equal(ombrel.arith("not", a, roi=(3, 4, 20, 10)), 255 - a[4:14, 3:23])
    assert np.array_equal(ombrel.arith("binarize", a, band=(100, 150)), ((a >= 100) & (a <= 150)).astype(np.uint8))
    agent = ombrel.ArithAgent("copy", a)
    agent.go()
    total, nonzero = agent.results
    assert total == int(a.sum()) % 2**32 and nonzero == int((a != 0).sum())
    # The output buffer is written in place: the agent's output is the caller's array.
    out = np.zeros((40, 50), np.uint8)
    agent = ombrel.ArithAgent("copy", a, out=out)
    agent.go()
    assert agent.output is out and np.array_equal(out, a)


def test_arithmetic_refuses_missing_second_image_and_unknown_ops():
    a = noise(10, 10)
    with pytest.raises(ValueError, match="second image"):
        ombrel.arith("add", a)
    with pytest.raises(ValueError, match="unknown name 'plus'"):
        ombrel.arith("plus", a, a)
    with pytest.raises(ValueError, match="at least"):
        ombrel.arith("add", a, np.zeros((5, 10), np.uint8))


def test_assertion_reports_become_warnings_or_errors():
    a = noise(10, 10)
    with pytest.warns(ombrel.AssertionWarning, match="arith"):
        ombrel.arith("copy", a, gain=300.0)
    previous = ombrel.assertions_as_errors(True)
    try:
        with pytest.raises(ombrel.AssertionFailed) as failure:
            ombrel.arith("copy", a, gain=300.0)
        assert failure.value.status == 0 and isinstance(failure.value, ombrel.Error)
    finally:
        ombrel.assertions_as_errors(previous)


def test_mask_copies_the_selected_pixels_only():
    img = noise(40, 30, seed=8)
    m = np.zeros((10, 12), bool)
    m[2:8, 3:9] = True
    m[0, 0] = True
    out = ombrel.mask(img, m, x=5, y=4)
    assert np.array_equal(out, np.where(m, img[4:14, 5:17], 0))
    banded = ombrel.mask(img, m, x=5, y=4, op="band", band=(0, 127))
    assert np.array_equal(banded, (m & (img[4:14, 5:17] <= 127)).astype(np.uint8))
    # An automatic band is counted over the pixels under the mask only, and says which threshold it chose.
    under = img[4:14, 5:17][m]
    t = int(cv2.threshold(under, 0, 255, cv2.THRESH_BINARY + cv2.THRESH_OTSU)[0])
    light, chosen = ombrel.mask(img, m, x=5, y=4, op="band", band="auto-light")
    assert chosen == ombrel.BandChoice((t + 1, 255), "auto-light", t, "light")
    assert np.array_equal(light, (m & (img[4:14, 5:17] > t)).astype(np.uint8))
    with pytest.raises(ValueError, match="op='band'"):
        ombrel.mask(img, m, band="auto")


def test_projection_decimation_and_transposition():
    img = noise(37, 29, seed=10)
    cols = ombrel.project(img, "columns")
    assert np.array_equal(cols[0], (img.sum(axis=0, dtype=np.uint32) >> (29).bit_length()).astype(np.uint8))
    rows = ombrel.project(img, "rows")
    assert np.array_equal(rows[0], (img.sum(axis=1, dtype=np.uint32) >> (37).bit_length()).astype(np.uint8))
    assert np.array_equal(ombrel.transpose(img, "rot90_ccw"), np.rot90(img))
    assert np.array_equal(ombrel.transpose(img, "rot90_cw"), cv2.rotate(img, cv2.ROTATE_90_CLOCKWISE))
    assert np.array_equal(ombrel.transpose(img, "rot180"), cv2.rotate(img, cv2.ROTATE_180))
    assert np.array_equal(ombrel.transpose(img, "flip_tb"), cv2.flip(img, 0))
    assert np.array_equal(ombrel.transpose(img, "flip_lr"), cv2.flip(img, 1))
    half = ombrel.decimate(img, 2)
    assert half.shape == (14, 18)
    # Interior samples are the binomial 3x3 mean, truncated.
    k = np.array([[1, 2, 1], [2, 4, 2], [1, 2, 1]])
    y, x = 2 * 5 + 1, 2 * 7 + 1
    assert half[5, 7] == (img[y - 1:y + 2, x - 1:x + 2].astype(int) * k).sum() >> 4


def test_frame_average_of_a_stream():
    frames = [noise(20, 10, seed=s) for s in range(4)]
    out = ombrel.frame_average(frames)
    assert np.array_equal(out, (np.sum(frames, axis=0, dtype=np.uint32) >> 2).astype(np.uint8))
    agent = ombrel.FrameAverageAgent(frames[0], frames=4)
    agent.go(frames[0])
    agent.go(frames[1])
    assert agent.queue_length == 2
    assert np.array_equal(agent.output, ((frames[0].astype(int) + frames[1]) // 2).astype(np.uint8))
