# SPDX-License-Identifier: MIT
"""One-line functions over the agents: numpy arrays in, plain Python and numpy results out."""
from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Dict, List, Optional, Tuple

import numpy as np

from . import _ombrel

__all__ = ["blob", "BlobResult", "BlobRegion", "BandChoice", "choose_band", "AUTO_BANDS", "DEFAULT_BLOB_FEATURES",
           "STANDARD_FIGURES"]

# What a one-line blob analysis reports of the agent's own features unless asked for more.
DEFAULT_BLOB_FEATURES = ("area", "filled_area", "holes", "centroid_x", "centroid_y", "bbox_left", "bbox_top",
                         "bbox_right", "bbox_bottom", "major_axis", "minor_axis", "axis_angle", "perimeter",
                         "compactness", "mean_grey")

# The standard figures every region carries, measured on its pixels, under the names the ombrel program's
# JSON uses. ``centroid`` is (x, y), the mean pixel index; ``orientation`` is in degrees.
STANDARD_FIGURES = ("area", "centroid", "perimeter", "circularity", "major_axis", "minor_axis", "orientation",
                    "eccentricity", "euler_number", "convex_area", "solidity")
_WHOLE_FIGURES = ("area", "euler_number", "convex_area")  # whole numbers

AUTO_BANDS = ("auto", "auto-dark", "auto-light")


@dataclass(frozen=True)
class BandChoice:
    """The band a blob analysis or mask used: ``band`` (low, high), ``mode`` ("fixed", "auto", "auto-dark",
    "auto-light") and, for the automatic modes, Otsu's ``threshold`` t and which class the objects are
    (``objects_are``: "dark" = 0..t, "light" = t+1..255)."""
    band: Tuple[int, int]
    mode: str = "fixed"
    threshold: Optional[int] = None
    objects_are: Optional[str] = None

    def to_dict(self) -> Dict[str, Any]:
        d: Dict[str, Any] = {"band": list(self.band), "band_mode": self.mode}
        if self.threshold is not None:
            d.update(threshold=self.threshold, objects_are=self.objects_are)
        return d


def choose_band(image, band, roi=None, mask=None) -> BandChoice:
    """The band ``band`` stands for on the region of ``image``: a ``(low, high)`` pair as it is, or one chosen
    from Otsu's threshold t of the region's histogram (counted over the region under the mask):
    ``"auto-dark"`` gives 0..t, ``"auto-light"`` t+1..255 and ``"auto"`` the class with fewer pixels (the
    dark one on a tie). An image of one grey value has no split: t is that value and "auto" takes all of it.
    """
    if isinstance(band, str):
        if band not in AUTO_BANDS:
            raise ValueError(f"band: expected (low, high) or one of {', '.join(AUTO_BANDS)}, got {band!r}")
        agent = _ombrel.HistogramAgent(image, bins=256, roi=roi, mask=mask)
        agent.go()
        counts = agent.bins
        t = _ombrel.otsu_threshold(counts)
        dark, light = int(counts[:t + 1].sum()), int(counts[t + 1:].sum())
        dark_objects = band == "auto-dark" or (band == "auto" and (dark <= light or light == 0))
        chosen = (0, t) if dark_objects else (min(t + 1, 255), 255)
        mode = "auto" if band == "auto" else "auto-dark" if dark_objects else "auto-light"
        return BandChoice(chosen, mode, t, "dark" if dark_objects else "light")
    low, high = band
    return BandChoice((int(low), int(high)))


@dataclass(eq=False)
class BlobRegion:
    """One region of a blob analysis: its label, kind ("object" or "hole"), its standard figures
    (``STANDARD_FIGURES``, read as attributes: ``region.area``, ``region.centroid``, ...), the agent's own
    features by name (``region.features``; a name that is not a standard figure also reads as an attribute)
    and its place in the tree (parent region or None for top level, children, holes among them)."""
    label: int
    kind: str
    features: Dict[str, float]
    figures: Dict[str, Any] = field(default_factory=dict)
    parent: Optional["BlobRegion"] = None
    children: List["BlobRegion"] = field(default_factory=list)

    @property
    def holes(self) -> List["BlobRegion"]:
        """The children of the other kind: an object's holes (an island inside a hole is an object)."""
        return [c for c in self.children if c.kind != self.kind]

    def __getattr__(self, name: str) -> Any:
        for where in ("figures", "features"):
            values = self.__dict__.get(where, {})
            if name in values:
                return values[name]
        raise AttributeError(f"BlobRegion has no figure or feature {name!r}")

    def to_dict(self) -> Dict[str, Any]:
        """Plain values for JSON, laid out as the ombrel program writes a region: label, kind, parent label (0
        at top level), child labels, the standard figures (None where unknown) and ``features``."""
        figures = {k: list(v) if k == "centroid" and v is not None else v for k, v in self.figures.items()}
        return {"label": self.label, "kind": self.kind, "parent": self.parent.label if self.parent else 0,
                "children": [c.label for c in self.children], **figures, "features": dict(self.features)}

    def __repr__(self) -> str:
        return (f"BlobRegion(label={self.label}, kind={self.kind!r}, area={self.figures.get('area')}, "
                f"parent={self.parent.label if self.parent else 0}, children={[c.label for c in self.children]})")


class BlobResult:
    """The regions of one blob analysis, in label order (raster order of their first pixel).

    ``regions`` lists objects and holes; ``objects`` and ``top_level`` select among them; ``band_choice`` is
    the band used (with Otsu's threshold for an automatic band). ``table()`` gives ``{column: numpy array}``
    (``pandas.DataFrame(result.table())`` makes a data frame) and ``to_dict()`` a JSON-ready dictionary."""

    def __init__(self, regions: List[BlobRegion], names: List[str], band_choice: Optional[BandChoice] = None):
        self.regions = regions
        self.feature_names = names
        self.band_choice = band_choice

    @property
    def threshold(self) -> Optional[int]:
        """Otsu's threshold the automatic band came from (None for a fixed band)."""
        return self.band_choice.threshold if self.band_choice else None

    def __len__(self) -> int:
        return len(self.regions)

    def __iter__(self):
        return iter(self.regions)

    def __getitem__(self, i: int) -> BlobRegion:
        return self.regions[i]

    @property
    def objects(self) -> List[BlobRegion]:
        return [r for r in self.regions if r.kind == "object"]

    @property
    def top_level(self) -> List[BlobRegion]:
        return [r for r in self.regions if r.parent is None]

    def table(self) -> Dict[str, np.ndarray]:
        """One column per figure: label, kind, parent, the standard figures (centroid as centroid_x and
        centroid_y; NaN where unknown), then the agent's features as ``features.<name>``."""
        columns: Dict[str, np.ndarray] = {
            "label": np.array([r.label for r in self.regions], dtype=np.int32),
            "kind": np.array([r.kind for r in self.regions], dtype=object),
            "parent": np.array([r.parent.label if r.parent else 0 for r in self.regions], dtype=np.int32)}

        def column(values):
            return np.array([np.nan if v is None else v for v in values], dtype=np.float64)

        for name in STANDARD_FIGURES:
            if name == "centroid":
                centroids = [r.figures["centroid"] or (None, None) for r in self.regions]
                columns["centroid_x"] = column(c[0] for c in centroids)
                columns["centroid_y"] = column(c[1] for c in centroids)
            else:
                columns[name] = column(r.figures[name] for r in self.regions)
        for name in self.feature_names:
            columns["features." + name] = np.array([r.features[name] for r in self.regions], dtype=np.float64)
        return columns

    def to_dict(self) -> Dict[str, Any]:
        d: Dict[str, Any] = self.band_choice.to_dict() if self.band_choice else {}
        d.update(count=len(self.regions), objects=len(self.objects), holes=len(self.regions) - len(self.objects),
                 regions=[r.to_dict() for r in self.regions])
        return d

    def __repr__(self) -> str:
        return f"BlobResult({len(self.objects)} objects, {len(self.regions) - len(self.objects)} holes)"


def _figures_of(row) -> Dict[str, Any]:
    values = dict(zip(_ombrel.BlobAgent.shape_names, map(float, row)))
    figures: Dict[str, Any] = {}
    for name in STANDARD_FIGURES:
        if name == "centroid":
            x, y = values["centroid_x"], values["centroid_y"]
            figures[name] = None if np.isnan(x) else (x, y)  # None: the agent computed no moments
            continue
        v = values[name]
        figures[name] = None if np.isnan(v) else int(v) if name in _WHOLE_FIGURES else v
    return figures


def _regions_of(agent: "_ombrel.BlobAgent", names, band_choice: Optional[BandChoice] = None) -> BlobResult:
    names = list(names) if names is not None else list(DEFAULT_BLOB_FEATURES)
    values = agent.table(names)
    shapes = agent.shapes()
    parents, colours = agent.tree()
    regions = [BlobRegion(label=i + 1, kind="object" if colours[i] == 0 else "hole",
                          features=dict(zip(names, map(float, values[i]))), figures=_figures_of(shapes[i]))
               for i in range(agent.count)]
    for region, parent in zip(regions, parents):
        if parent > 0:
            region.parent = regions[parent - 1]
            region.parent.children.append(region)
    return BlobResult(regions, names, band_choice)


def blob(image, band=(0, 100), roi=None, mask=None, min_area: int = 1, max_area: int = 2**31 - 1,
         step=(1, 1), border_filter: bool = False, keep_all: bool = True, features=None) -> BlobResult:
    """Blob analysis: the connected regions of pixels whose value lies in ``band`` and the tree of their holes.

    Per pixel: object when ``band[0] <= v <= band[1]``. Objects are 8-connected, holes 4-connected; pixels
    outside the region count as background. Every region carries the standard figures (``STANDARD_FIGURES``:
    area, centroid as the mean pixel index, perimeter of the outer boundary, circularity, moment-ellipse axes,
    orientation in degrees from +x towards +y with y down, eccentricity, Euler number, convex area, solidity)
    and the agent's own ``features``.

    :param image: 2-D uint8 array (or Buffer), not copied.
    :param band: ``(low, high)``, both included; default ``(0, 100)`` finds dark parts on a light ground.
        ``"auto-dark"`` / ``"auto-light"`` / ``"auto"``: a band from Otsu's threshold of the region's
        histogram (see ``choose_band``); ``result.band_choice`` and ``result.threshold`` tell which.
    :param roi: ``None`` for the whole image, ``(x, y, width, height)`` or a Region.
    :param mask: 2-D bool/uint8 array over the region (non-zero selects), or None.
    :param min_area: smallest filled area (pixels) kept; default 1.
    :param max_area: largest filled area kept; default 2**31-1.
    :param step: ``(x, y)`` sampling steps; ``(1, 1)`` (default) is exact. A sampled run knows only the area
        and the centroid of the standard figures (the others are None).
    :param border_filter: delete regions touching the region's border (and their children); default False.
    :param keep_all: False keeps only the largest top-level region; default True.
    :param features: names of the agent's features to read (``BlobAgent.feature_names``); default
        ``DEFAULT_BLOB_FEATURES``.
    :returns: BlobResult (regions with figures and features, parent/children/holes; ``table()``,
        ``to_dict()``).
    """
    choice = choose_band(image, band, roi=roi, mask=mask)
    agent = _ombrel.BlobAgent(image, band=choice.band, roi=roi, mask=mask)
    agent.area_limits = (min_area, max_area)
    agent.step = tuple(step)
    if border_filter:
        agent.filter_flags = agent.filter_flags | 4
    agent.keep_all = keep_all
    agent.go()
    return _regions_of(agent, features, choice)


__all__ += ["histogram", "HistogramResult", "arith", "mask", "project", "frame_average", "decimate", "transpose",
            "binmorph", "graymorph", "sobel", "scene_angle", "auto_focus", "break_detection"]


@dataclass
class HistogramResult:
    """Counts and figures of a region.

    ``bins``: the counts. Standard figures, as numpy computes them over the region's pixels (zeros
    included), whatever ``bins`` and ``bin_offset``: ``count``, ``mean``, ``std`` (ddof=0), ``median`` (mean
    of the two middle values for an even count), ``min``, ``max`` (all but count None for an empty region;
    read as -128..127 with ``signed``), and ``otsu_threshold`` (of the unsigned values, as cv2.threshold with
    THRESH_OTSU). The agent's own figures, under its names: ``pixel_count`` (non-zero pixels only),
    ``pixel_sum``, ``agent_mean`` (pixel_sum // pixel_count), ``agent_std_dev`` (over bin centres,
    / (pixel_count - 1)), ``agent_median`` (centre of the bin after the last one below half)."""
    bins: np.ndarray
    count: int
    mean: Optional[float]
    std: Optional[float]
    median: Optional[float]
    min: Optional[int]
    max: Optional[int]
    otsu_threshold: int
    pixel_count: int
    pixel_sum: int
    agent_mean: float
    agent_std_dev: float
    agent_median: float

    def to_dict(self) -> Dict[str, Any]:
        d = dict(self.__dict__)
        d["bins"] = self.bins.tolist()
        return d


def _standard_statistics(values: np.ndarray, signed: bool) -> Dict[str, Any]:
    if not signed:
        return _ombrel.grey_statistics(values)
    # Signed bytes: value v >= 128 reads v - 256, so the counts shift by half a turn and the figures back.
    stats = _ombrel.grey_statistics(np.roll(values, 128))
    if stats["count"]:
        for name in ("mean", "median", "min", "max"):
            stats[name] -= 128
    return stats


def histogram(image, bins: int = 256, roi=None, mask=None, bin_offset: int = 0,
              signed: bool = False) -> HistogramResult:
    """Histogram of a region: ``bins[(v >> s) + bin_offset] += 1`` per pixel v, s such that ``bins`` bins
    cover 0..255.

    :param image: 2-D uint8 array (or Buffer).
    :param bins: number of bins, 1..256; default 256 (one per grey value).
    :param roi: None (whole image), ``(x, y, width, height)`` or a Region.
    :param mask: 2-D bool/uint8 array over the region (non-zero selects), or None.
    :param bin_offset: added to every bin index; indices outside the bins are skipped. Default 0.
    :param signed: pixels read as signed bytes (-128..127) by the agent's sum and by the standard figures.
        Default False.
    :returns: HistogramResult with numpy's figures, Otsu's threshold and the agent's own figures under their
        own names.
    """
    agent = _ombrel.HistogramAgent(image, bins=bins, roi=roi, mask=mask)
    agent.bin_offset = bin_offset
    agent.signed = signed
    agent.go()
    counts = np.array(agent.bins, dtype=np.int64)
    values = counts
    if bins != 256 or bin_offset != 0:  # the standard figures need one bin per grey value
        fine = _ombrel.HistogramAgent(image, bins=256, roi=roi, mask=mask)
        fine.go()
        values = np.array(fine.bins, dtype=np.int64)
    stats = _standard_statistics(values, signed)
    return HistogramResult(bins=counts, **stats, otsu_threshold=_ombrel.otsu_threshold(values),
                           pixel_count=agent.pixel_count, pixel_sum=agent.pixel_sum, agent_mean=agent.mean,
                           agent_std_dev=agent.std_dev, agent_median=agent.median)


def arith(op, a, b=None, gain: float = 1.0, offset: int = 0, out=None, roi=None, mask=None,
          signed=None, clip=None, clamp=None, band=None, corner_b=None):
    """Pixel arithmetic into ``out`` (a new region-sized uint8 array by default), returned.

    Per pixel: v = op(a) or op(a, b); r = floor((v + P) * gain) + Q with P + Q = offset (exact integer
    arithmetic), written to 8 bits by the operation's clip rule (add, sub, diff, copy, mult clip to 255 by
    default; the logical operations wrap).

    :param op: not, negate, copy, binarize, maskshift, abs, passrange, add, sub, diff, and, or, xor, min, max,
        mult (or the code 0..15).
    :param a: source image; ``b``: second source for add and after (read from ``corner_b``, default (0, 0)).
    :param gain: -256..255, default 1.0. ``offset``: -65536..65791, default 0.
    :param out: output array (written from (0, 0)), or None.
    :param roi, mask: region of ``a`` (a masked region writes only its pixels).
    :param signed: None, or ``(signed_a, signed_b, signed_out)``; ``clip``/``clamp``: the clip flag
        (overflow to 255) and the clamp flag (clamp to 0..255); given together through set_sign_clip.
    :param band: ``(low, high)`` for binarize and passrange.
    """
    agent = _ombrel.ArithAgent(op, a, b, gain=gain, offset=offset, out=out, roi=roi, mask=mask)
    if signed is not None or clip is not None or clamp is not None:
        sa, sb, so = signed if signed is not None else (False, False, False)
        agent.set_sign_clip(sa, sb, so, True if clip is None else clip, bool(clamp))
    if band is not None:
        agent.set_band(*band)
    if corner_b is not None:
        agent.set_corner_b(*corner_b)
    agent.go()
    return agent.output


def mask(image, mask, x: int = 0, y: int = 0, op="copy", band=(1, 255), out=None):
    """The pixels of ``image`` under ``mask`` (placed with mask[0, 0] on image pixel (x, y)), in a new
    mask-sized array (0 elsewhere). op: copy (default), band (1 where band[0] <= v <= band[1]), sub (-v),
    and/min (0), add/or/xor/max/absdiff/copy_alt (v).

    With op="band", ``band`` may be "auto-dark", "auto-light" or "auto": a band from Otsu's threshold of
    the histogram of the pixels under the mask (see ``choose_band``); then the result is ``(output,
    BandChoice)`` so that the threshold chosen is known."""
    region = _ombrel.Region.from_mask(mask, x, y)
    automatic = isinstance(band, str)
    if automatic and op != "band":
        raise ValueError(f"band={band!r} needs op='band'")
    choice = choose_band(image, band, roi=region)
    agent = _ombrel.MaskAgent(image, roi=region, op=op, band=choice.band, out=out)
    agent.go()
    return (agent.output, choice) if automatic else agent.output


def project(image, type="columns", zones=(0, 0), roi=None, out=None):
    """Projection profile: ``type="columns"`` gives one value per column, (column sum) >> bitlength(height);
    ``"rows"`` one per row. ``zones=(size, space)`` gives one profile row per zone. Returns a uint8 array
    with the profile in row 0 (one row per zone)."""
    agent = _ombrel.ProjectAgent(image, type=type, zones=tuple(zones), roi=roi, out=out)
    agent.go()
    return agent.output


def frame_average(frames, roi=None, out=None, window: Optional[int] = None):
    """Running average of a sequence of frames (2-D uint8 arrays of one size) over the last ``window``
    frames (default: all of them); returns the output after the last frame. While the window fills the
    output is sum // count; a full window of 2, 4, 8, 16 or 32 frames gives sum >> log2(window)."""
    frames = list(frames)
    if not frames:
        raise ValueError("frames: expected at least one frame")
    agent = _ombrel.FrameAverageAgent(frames[0], frames=window or len(frames), roi=roi, out=out)
    for f in frames:
        agent.go(f)
    return agent.output


def decimate(image, step: int = 2, roi=None, out=None):
    """3x3 binomial smoothing sampled every ``step`` pixels (step 2, the default, halves the image)."""
    agent = _ombrel.DecimateAgent(image, step=step, roi=roi, out=out)
    agent.go()
    return agent.output


def transpose(image, op="rot90_ccw", roi=None, out=None):
    """A region turned (rot90_ccw = numpy.rot90, rot90_cw, rot180) or mirrored (flip_tb, flip_lr)."""
    agent = _ombrel.TransposeAgent(image, op=op, roi=roi, out=out)
    agent.go()
    return agent.output


def binmorph(image, op, iterations: int = 1, border_set: bool = False, roi=None, out=None):
    """Binary morphology on a 0/1 image (uint8, or bool converted to 0/1 bytes): ``iterations`` passes of a
    3x3 table operation (erode_full, dilate_full, fill_pinholes, ...; see BinMorphAgent). Returns uint8."""
    if isinstance(image, np.ndarray) and image.dtype == bool:
        image = image.astype(np.uint8)
    agent = _ombrel.BinMorphAgent(image, op, iterations=iterations, border_set=border_set, roi=roi, out=out)
    agent.go()
    return agent.output


def graymorph(image, op="erode", element=(3, 3), hot_spot=None, iterations: int = 1, inverted: bool = False,
              roi=None, out=None):
    """Grey morphology with a flat element: erode (minimum), dilate (maximum), open, close, gradient,
    tophat, well. ``element``: (width, height) rectangle (default 3 x 3) or an array of weights (non-zero:
    member); ``hot_spot`` default (w // 2, h // 2)."""
    agent = _ombrel.GrayMorphAgent(image, op=op, element=element, hot_spot=hot_spot, iterations=iterations,
                                   inverted=inverted, roi=roi, out=out)
    agent.go()
    return agent.output


def sobel(image, encoding="mag", shift: int = 0, threshold: int = 0, sparseness: int = 1, roi=None, mask=None,
          out=None):
    """Sobel gradient image in one of ten 8-bit encodings (mag, dx, dy, angle, qangle, absdx, absdy, sumabs,
    3m5a, 4gx4gy); gx = right minus left, gy = top minus bottom, clamped to -127..127. Border pixels hold the
    fill value (0; 0x40 for qangle). See SobelAgent."""
    agent = _ombrel.SobelAgent(image, encoding=encoding, shift=shift, threshold=threshold, sparseness=sparseness,
                               roi=roi, mask=mask, out=out)
    agent.go()
    return agent.output


def scene_angle(image, fold: int = 2, roi=None) -> Dict[str, float]:
    """Dominant edge direction of a region: ``{"angle": radians, "angle_degrees", "strength": per mille,
    "coverage": percent}``. fold=2 folds directions a quarter turn apart (default)."""
    agent = _ombrel.SceneAngleAgent(image, fold=fold, roi=roi)
    agent.go()
    return {"angle": agent.angle, "angle_degrees": float(np.degrees(agent.angle)), "strength": agent.strength,
            "coverage": agent.coverage}


def auto_focus(image, step=(1, 1), signed: bool = False, roi=None) -> Dict[str, float]:
    """Sharpness of a region: ``focus`` = 1000 * sum |S(x+dx, y+dy) - S(x, y)| / sum S (higher is sharper),
    with ``diff_sum``, ``pixel_sum``, ``pixel_count`` (non-zero pixels), ``mean`` (pixel_sum / pixel_count)
    and ``std_dev`` (the agent's spread figure)."""
    agent = _ombrel.AutoFocusAgent(image, step=tuple(step), signed=signed, roi=roi)
    agent.go()
    return {k: getattr(agent, k) for k in ("focus", "diff_sum", "pixel_sum", "pixel_count", "mean", "std_dev")}


def break_detection(image, template, dilated, iterations: int = 0, xor_mode: bool = True,
                    border_set: bool = False, roi=None) -> np.ndarray:
    """Break detection on binary (0/1 uint8) images: returns a uint8 image with 1 at the pixels where a trace
    of ``template`` is cut in ``image`` (``dilated``: the image dilated). iterations=0 repeats the thinning
    until nothing changes. See BreakAgent."""
    agent = _ombrel.BreakAgent(image, template, dilated, iterations=iterations, xor_mode=xor_mode,
                               border_set=border_set, roi=roi)
    agent.go()
    return agent.breaks


__all__ += ["match"]


def match(image, template, roi=None, step=(1, 1), n: int = 1, min_distance: float = 0.0, hot_spot=None):
    """Where a pattern lies in an image, by normalised correlation: up to ``n`` (x, y, score), best first,
    each at least ``min_distance`` pixels from those before it. score = |correlation coefficient| (1.0 for a
    perfect match, also an inverted one).

    :param image: 2-D uint8 array (or Buffer) searched.
    :param template: a CorrTemplate, or a 2-D uint8 array used whole as the pattern.
    :param roi: positions searched (of the template's hot spot, default its top-left); None: all.
    :param step: (x, y) steps between positions; default (1, 1).
    :param hot_spot: the hot spot of a template given as an array; default (0, 0).
    """
    if not isinstance(template, _ombrel.CorrTemplate):
        template = _ombrel.CorrTemplate(template, hot_spot=hot_spot)
    agent = _ombrel.CorrMatchAgent(image, template, roi=roi, step=tuple(step))
    agent.go()
    return agent.top(n, min_distance)


__all__ += ["conv"]


def conv(image, kernel, step=(1, 1), hot_spot=None, roi=None, out=None):
    """Filters ``image`` with ``kernel`` (2-D uint8 or int8 array; int8 reads it signed), correlation form
    (not mirrored): out = low 8 bits of (sum K * I) >> shift, shift = bit length of trunc(sqrt(sum K**2)).
    With the default hot spot (0, 0) output pixel (x, y) is the window whose top-left is image pixel (x, y)
    ("valid" positions only: the kernel never leaves the image)."""
    kernel = np.asarray(kernel)
    signed = kernel.dtype == np.int8
    if signed:
        kernel = kernel.view(np.uint8)
    template = _ombrel.CorrTemplate(np.ascontiguousarray(kernel), hot_spot=hot_spot)
    agent = _ombrel.ConvAgent(image, template, kernel_signed=signed, step=tuple(step), roi=roi, out=out)
    agent.go()
    columns, rows = agent.samples
    return agent.output[:rows, :columns]
