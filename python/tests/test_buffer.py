# SPDX-License-Identifier: MIT
"""Images cross into the library without a copy, and every array that cannot be wrapped is refused clearly."""
import gc
import weakref

import numpy as np
import pytest

import ombrel


def test_buffer_shares_pixels_with_the_array_both_ways():
    a = np.zeros((48, 64), dtype=np.uint8)
    buf = ombrel.Buffer(a)
    view = np.asarray(buf)
    assert buf.address == a.ctypes.data == view.ctypes.data
    assert (buf.width, buf.height, buf.pitch, buf.depth) == (64, 48, 64, 8)
    view[3, 5] = 77
    assert a[3, 5] == 77
    a[7, 9] = 99
    assert view[7, 9] == 99


def test_row_stride_of_a_sliced_array_is_kept_and_agents_write_through_it():
    big = np.zeros((100, 128), dtype=np.uint8)
    window = big[10:40, 20:70]            # rows 128 bytes apart, 50 wide
    buf = ombrel.Buffer(window)
    assert buf.pitch == 128 and buf.width == 50 and buf.address == window.ctypes.data
    src = np.full((30, 50), 9, dtype=np.uint8)
    ombrel.arith("copy", src, out=window)
    assert (big[10:40, 20:70] == 9).all()
    assert big[:10].sum() == 0 and big[40:].sum() == 0 and big[:, :20].sum() == 0 and big[:, 70:].sum() == 0


def test_buffer_keeps_its_array_alive():
    a = np.arange(64 * 32, dtype=np.uint32).astype(np.uint8).reshape(32, 64)
    expected = a.copy()
    ref = weakref.ref(a)
    buf = ombrel.Buffer(a)
    del a
    gc.collect()
    assert ref() is not None
    assert np.array_equal(np.asarray(buf), expected)
    del buf
    gc.collect()
    assert ref() is None


def test_library_owned_buffer_is_viewed_without_a_copy():
    buf = ombrel.Buffer.zeros(33, 7)
    view = np.asarray(buf)
    assert view.shape == (7, 33) and view.ctypes.data == buf.address and buf.pitch % 64 == 0
    view[:] = 5
    assert (np.asarray(buf) == 5).all()


def test_bool_arrays_become_one_bit_images_and_come_back():
    m = np.zeros((5, 13), dtype=bool)
    m[1, 0] = m[1, 12] = m[4, 7] = True
    buf = ombrel.Buffer(m)
    assert buf.depth == 1 and not buf.wrapped
    packed = np.asarray(buf)
    assert packed.shape == (5, 2)
    assert packed[1, 0] == 0x80 and packed[1, 1] == 0x08 and packed[4, 0] == 0x01
    assert np.array_equal(buf.to_bool(), m)


@pytest.mark.parametrize("bad, error, words", [
    (np.zeros((4, 4), dtype=np.float64), TypeError, "uint8"),
    (np.zeros((4, 4), dtype=np.uint16), TypeError, "uint8"),
    ([[1, 2], [3, 4]], TypeError, "numpy array"),
    (np.zeros((4, 4, 3), dtype=np.uint8), ValueError, "2-D"),
    (np.zeros(16, dtype=np.uint8), ValueError, "2-D"),
    (np.zeros((0, 4), dtype=np.uint8), ValueError, "empty"),
    (np.zeros((8, 8), dtype=np.uint8)[:, ::2], ValueError, "adjacent"),
    (np.zeros((8, 8), dtype=np.uint8)[::-1], ValueError, "stride"),
    (np.zeros((8, 8), dtype=np.uint8).T, ValueError, "adjacent"),
])
def test_arrays_that_cannot_be_wrapped_are_refused_with_what_was_expected(bad, error, words):
    with pytest.raises(error, match=words):
        ombrel.Buffer(bad)
    with pytest.raises(error, match=words):
        ombrel.blob(bad)


def test_regions_outside_the_image_or_malformed_are_refused():
    img = np.zeros((20, 30), dtype=np.uint8)
    for roi in [(25, 0, 10, 5), (-1, 0, 5, 5), (0, 15, 5, 6), ombrel.Region(29, 19, 2, 1)]:
        with pytest.raises(ValueError, match="inside"):
            ombrel.histogram(img, roi=roi)
    with pytest.raises(ValueError, match="positive"):
        ombrel.histogram(img, roi=(0, 0, 0, 5))
    with pytest.raises(TypeError, match="tuple"):
        ombrel.histogram(img, roi=(1, 2, 3))
    with pytest.raises(ValueError, match="shape"):
        ombrel.histogram(img, roi=(0, 0, 5, 5), mask=np.ones((4, 5), dtype=bool))
    with pytest.raises(ValueError, match="read-only"):
        out = np.zeros((20, 30), dtype=np.uint8)
        out.setflags(write=False)
        ombrel.arith("copy", img, out=out)
    with pytest.raises(ValueError, match="at least"):
        ombrel.arith("copy", img, out=np.zeros((19, 30), dtype=np.uint8))


def test_read_only_arrays_are_fine_as_sources():
    img = np.full((10, 10), 3, dtype=np.uint8)
    img.setflags(write=False)
    assert ombrel.histogram(img).bins[3] == 100
