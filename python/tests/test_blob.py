# SPDX-License-Identifier: MIT
"""Blob analysis from Python: the same regions and figures as the C++ agent, by name and as a tree."""
import json
import subprocess

import cv2
import numpy as np
import pytest

import ombrel
from conftest import noise, parts_scene


def test_regions_carry_standard_figures_and_their_tree(scene):
    result = ombrel.blob(scene, band=(0, 100))
    assert [r.kind for r in result] == ["object", "object", "object", "object", "hole"]
    speck, rect, small, ring, hole = result.regions
    assert (rect.area, rect.features["holes"], rect.holes) == (600, 0, [])
    # Centroid = mean pixel index, box in image coordinates with exclusive right and bottom.
    assert (rect.centroid_x, rect.centroid_y) == (24.5, 19.5)
    assert (rect.bbox_left, rect.bbox_top, rect.bbox_right, rect.bbox_bottom) == (10, 10, 40, 30)
    assert (small.centroid_x, small.centroid_y) == (102.0, 54.5)
    ys, xs = np.nonzero((scene <= 100)[60:101, 40:81])
    assert ring.area == len(xs)
    assert ring.centroid_x == pytest.approx(xs.mean() + 40, abs=1e-9)
    assert ring.centroid_y == pytest.approx(ys.mean() + 60, abs=1e-9)
    assert ring.holes == [hole] and ring.children == [hole] and hole.parent is ring
    assert ring.filled_area == ring.area + hole.area
    assert result.top_level == [speck, rect, small, ring]
    assert np.isclose(rect.major_axis / rect.minor_axis, 30 / 20, rtol=0.05)


def test_to_dict_is_json_and_table_has_one_column_per_feature(scene):
    result = ombrel.blob(scene, features=["area", "perimeter", "mean_grey"])
    d = json.loads(json.dumps(result.to_dict()))
    assert d["count"] == 5
    assert d["regions"][3]["children"] == [5] and d["regions"][4]["parent"] == 4
    assert d["regions"][1]["area"] == 600 and d["regions"][1]["centroid"] == [24.5, 19.5]
    assert d["regions"][1]["features"] == {"area": 600.0, "perimeter": result[1].features["perimeter"],
                                           "mean_grey": 20.0}
    table = result.table()
    assert list(table) == ["label", "kind", "parent", "area", "centroid_x", "centroid_y", "perimeter",
                           "circularity", "major_axis", "minor_axis", "orientation", "eccentricity",
                           "euler_number", "convex_area", "solidity", "features.area", "features.perimeter",
                           "features.mean_grey"]
    assert table["area"].tolist() == [1, 600, 50, result[3].area, result[4].area]
    assert table["features.area"].tolist() == table["area"].tolist()
    assert table["euler_number"].tolist() == [1, 1, 1, 0, 1]  # the ring has one hole
    assert table["features.mean_grey"][1] == 20.0 and table["features.mean_grey"][2] == 40.0
    with pytest.raises(ValueError, match="unknown blob feature"):
        ombrel.blob(scene, features=["area", "centroid"])


def test_object_areas_and_boxes_match_opencv_connected_components():
    img = noise(200, 150, seed=7)
    img = cv2.GaussianBlur(img, (5, 5), 0)
    band = (0, 120)
    result = ombrel.blob(img, band=band)
    binary = ((img >= band[0]) & (img <= band[1])).astype(np.uint8)
    n, labels, stats, _ = cv2.connectedComponentsWithStats(binary, connectivity=8)
    theirs = sorted((s[cv2.CC_STAT_AREA], s[0], s[1], s[0] + s[2], s[1] + s[3]) for s in stats[1:])
    ours = sorted((int(r.area), int(r.bbox_left), int(r.bbox_top), int(r.bbox_right), int(r.bbox_bottom))
                  for r in result.objects)
    assert len(ours) == n - 1 > 10
    assert ours == theirs


@pytest.mark.parametrize("band", [(0, 100), "auto", "auto-light"])
def test_figures_equal_the_ombrel_programs_on_the_same_file(tmp_path, ombrel_program, scene, band):
    path = tmp_path / "scene.png"
    cv2.imwrite(str(path), scene)
    report = tmp_path / "blob.json"
    subprocess.run([ombrel_program, "blob", str(path), "--band", band if isinstance(band, str) else "0:100",
                    "--features", "all", "--json", str(report)], check=True, capture_output=True)
    record = json.loads(report.read_text())["images"][0]["blobs"]
    theirs = record["regions"]
    names = [n for n in theirs[0]["features"] if n in ombrel.BlobAgent.feature_names and
             not n.startswith("centroid")]
    result = ombrel.blob(scene, band=band, features=names)
    units = {name: ombrel.BlobAgent.feature_info(name)["unit"] for name in names}
    ours = result.to_dict()
    for key in ("band", "band_mode", "threshold", "objects_are", "objects", "holes"):
        assert ours.get(key) == record.get(key), key
    assert len(names) > 50 and len(result) == len(theirs) > 1
    for mine, other in zip(ours["regions"], theirs):
        for key in ("label", "kind", "parent", "children", "area", "euler_number", "convex_area"):
            assert mine[key] == other[key], key
        for key in ombrel.STANDARD_FIGURES:
            assert mine[key] == pytest.approx(other[key], rel=1e-12, abs=1e-12), key
        # The program writes the agent's angles in degrees; the module keeps the library's radians.
        assert mine["features"] == {name: other["features"][name] if units[name] != "rad"
                                    else pytest.approx(np.radians(other["features"][name]), abs=1e-12)
                                    for name in names}


def test_standard_figures_of_drawn_shapes():
    image = np.zeros((300, 300), np.uint8)
    cv2.circle(image, (80, 90), 50, 255, -1)
    cv2.ellipse(image, (200, 200), (60, 20), 30, 0, 360, 255, -1)
    disc, ellipse = ombrel.blob(image, band=(255, 255)).regions
    assert disc.perimeter == pytest.approx(2 * np.pi * 50, rel=0.02)
    assert disc.circularity == pytest.approx(1.0, abs=0.03)
    assert disc.centroid == pytest.approx((80, 90), abs=1e-9)  # a drawn disc is symmetric
    # The moment ellipse of a drawn ellipse is about that ellipse: full axes 120 and 40, turned 30 degrees from +x
    # towards +y (clockwise on screen, as cv2.ellipse turns it).
    assert (ellipse.major_axis, ellipse.minor_axis) == pytest.approx((120, 40), abs=1.5)  # edge pixels drawn
    assert ellipse.orientation == pytest.approx(30, abs=0.5)
    assert ellipse.eccentricity == pytest.approx(np.sqrt(1 - (20 / 60) ** 2), abs=0.01)
    assert ellipse.euler_number == 1 and ellipse.solidity == pytest.approx(1.0, abs=0.02)
    # Sampling rows or columns leaves area and centroid (from the agent's moments) and nothing else.
    sampled = ombrel.blob(image, band=(255, 255), step=(2, 1))[0]
    assert sampled.perimeter is None and sampled.solidity is None and sampled.area > 0
    assert sampled.centroid == pytest.approx((80, 90), abs=0.5)
    assert np.isnan(ombrel.blob(image, band=(255, 255), step=(1, 2)).table()["perimeter"]).all()


def test_automatic_bands_use_otsus_threshold_as_opencv():
    image = cv2.GaussianBlur(noise(120, 90, seed=11), (9, 9), 0)
    t, binary = cv2.threshold(image, 0, 255, cv2.THRESH_BINARY + cv2.THRESH_OTSU)
    dark = ombrel.blob(image, band="auto-dark")
    light = ombrel.blob(image, band="auto-light")
    assert dark.threshold == light.threshold == int(t)
    assert dark.band_choice == ombrel.BandChoice((0, int(t)), "auto-dark", int(t), "dark")
    assert light.band_choice.band == (int(t) + 1, 255)
    assert sum(r.area for r in light.objects) == int((binary > 0).sum())
    # "auto" takes the class with fewer pixels.
    fewer = "dark" if (binary == 0).sum() <= (binary > 0).sum() else "light"
    assert ombrel.blob(image, band="auto").band_choice.objects_are == fewer
    assert ombrel.blob(image, band=(0, 50)).band_choice == ombrel.BandChoice((0, 50))
    # One grey value has no split: auto takes all of it.
    flat = ombrel.blob(np.full((20, 30), 77, np.uint8), band="auto")
    assert flat.band_choice.band == (0, 77) and flat[0].area == 600
    with pytest.raises(ValueError, match="auto-dark"):
        ombrel.blob(image, band="otsu")


def test_enable_features_switches_on_only_what_they_need(scene):
    agent = ombrel.BlobAgent(scene, band=(0, 100))
    agent.options, agent.filter_flags = 0, 16
    agent.go()
    assert agent.feature(2, "perimeter") == 0.0 and agent.feature(2, "mean_grey") == 0.0
    agent.enable_features(["perimeter", 53])  # 53: mean grey
    assert agent.filter_flags & 16  # what was set stays set
    agent.go()
    assert agent.feature(2, "mean_grey") == 20.0
    assert agent.feature(2, "perimeter") == ombrel.blob(scene, features=["perimeter"])[1].features["perimeter"]
    assert agent.feature(2, "major_axis") == 0.0  # not asked for
    with pytest.raises(ValueError, match="unknown blob feature"):
        agent.enable_features(["roundness"])
    with pytest.raises(ValueError, match="unknown blob feature"):
        agent.enable_features([22])
    assert ombrel.BlobAgent.feature_info("mean_grey")["number"] == 53
    assert ombrel.BlobAgent.feature_info(21)["unit"] == "rad"
    with pytest.raises(ValueError, match="computed here"):
        ombrel.BlobAgent.feature_info("bbox_left")


def test_agent_runs_per_frame_on_new_buffers_and_reads_back():
    frames = [ombrel.Buffer(parts_scene()), ombrel.Buffer(np.full((120, 160), 200, np.uint8))]
    agent = ombrel.BlobAgent(frames[0], band=(0, 100))
    assert agent.go() == 5 and agent.count == 5
    assert agent.go(frames[1]) == 0 and agent.table().shape == (0, len(ombrel.BlobAgent.feature_names))
    assert agent.go(frames[0]) == 5
    parents, colours = agent.tree()
    assert parents.tolist() == [0, 0, 0, 0, 4] and colours.tolist() == [0, 0, 0, 0, -1]
    assert agent.feature(2, "area") == 600
    with pytest.raises(IndexError):
        agent.feature(6, "area")
    with pytest.raises(ValueError, match="too small"):
        agent.go(np.zeros((10, 10), np.uint8))


def test_filters_region_and_mask(scene):
    assert [r.area for r in ombrel.blob(scene, min_area=51).objects] == [600, 1060]
    assert [r.area for r in ombrel.blob(scene, keep_all=False)] == [1060, 197]
    assert [r.area for r in ombrel.blob(scene, roi=(0, 0, 50, 40))] == [600]
    # The rectangle touches the region's border when the region cuts through it.
    assert ombrel.blob(scene, roi=(20, 0, 50, 40), border_filter=True).regions == []
    keep = np.zeros((120, 160), bool)
    keep[40:70, 90:120] = True
    assert [r.area for r in ombrel.blob(scene, mask=keep)] == [50]
    with pytest.raises(ValueError, match="band"):
        ombrel.blob(scene, band=(100, 50))


def test_a_failure_status_raises_ombrel_error_with_the_librarys_message():
    checker = (np.indices((480, 640)).sum(axis=0) % 2 * 255).astype(np.uint8)
    with pytest.raises(ombrel.Error) as failure:
        ombrel.blob(checker, band=(0, 100))
    assert failure.value.status == -1003
    assert "Image Too Complex" in failure.value.message
    assert isinstance(failure.value, Exception) and not isinstance(failure.value, ombrel.AssertionFailed)
