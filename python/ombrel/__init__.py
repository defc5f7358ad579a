# SPDX-License-Identifier: MIT
"""Ombrel, a machine-vision library for industrial inspection, from Python.

Two levels:

* one-line functions (``ombrel.blob``, ``ombrel.histogram``, ``ombrel.arith``, ``ombrel.mask``, ...) that take
  numpy arrays and keyword arguments and return plain results;
* the agents themselves (``ombrel.BlobAgent``, ``ombrel.HistogramAgent``, ...) for a production loop: made
  once, ``go()`` per frame, results read back, nothing allocated per frame.

Images are 2-D ``uint8`` numpy arrays (``bool`` arrays for one-bit images), wrapped without a copy by
``ombrel.Buffer``. A failure status raises ``ombrel.Error`` (``.status``, ``.message``); the library's
assertion reports become ``ombrel.AssertionWarning`` warnings, or ``ombrel.AssertionFailed`` errors after
``ombrel.assertions_as_errors(True)``. Agents run without holding the interpreter lock.
"""
from __future__ import annotations

from . import _ombrel
from ._ombrel import *  # noqa: F401,F403  (the agents, Buffer, Region, Error and warnings)
from ._ombrel import (AssertionFailed, AssertionWarning, BlobAgent, Buffer, Error, LibraryNote, Region,
                      assertions_as_errors)

from ._oneliners import *  # noqa: F401,F403
from ._oneliners import __all__ as _oneliner_names

__all__ = ["AssertionFailed", "AssertionWarning", "BlobAgent", "Buffer", "Error", "LibraryNote", "Region",
           "assertions_as_errors"] + [n for n in dir(_ombrel) if n.endswith("Agent")] + list(_oneliner_names)
