# SPDX-License-Identifier: MIT
"""The example script reads PNG and PGM files itself and writes an overlay any PNG reader opens."""
import json
import os
import runpy
import sys

import cv2
import numpy as np

import ombrel
from conftest import parts_scene

EXAMPLE = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "python", "blob_table.py")


def run_example(args, capsys):
    sys.argv = [EXAMPLE] + args
    try:
        runpy.run_path(EXAMPLE, run_name="__main__")
    except SystemExit as end:
        assert end.code == 0
    return capsys.readouterr().out


def test_example_reads_png_and_pgm_and_writes_table_json_and_overlay(tmp_path, capsys):
    scene = parts_scene()
    # Random noise makes the PNG encoder pick every row filter (Sub, Up, Average, Paeth).
    scene[100:, :] = np.random.default_rng(3).integers(101, 256, size=(20, 160), dtype=np.uint8)
    cv2.imwrite(str(tmp_path / "s.png"), scene)
    cv2.imwrite(str(tmp_path / "s.pgm"), scene)
    expected = ombrel.blob(scene, band=(0, 100), min_area=20)
    for name in ("s.png", "s.pgm"):
        out = run_example([str(tmp_path / name), "--overlay", str(tmp_path / "o.png"), "--json",
                           str(tmp_path / "o.json")], capsys)
        assert f"{len(expected.objects)} objects" in out
        assert json.loads((tmp_path / "o.json").read_text()) == json.loads(json.dumps(expected.to_dict()))
        overlay = cv2.imread(str(tmp_path / "o.png"))
        assert overlay.shape == (120, 160, 3)


def test_every_name_the_stubs_declare_exists():
    import ast
    stubs = ast.parse(open(os.path.join(os.path.dirname(ombrel.__file__), "__init__.pyi")).read())
    missing = []
    for node in stubs.body:
        if isinstance(node, (ast.FunctionDef, ast.ClassDef)) and not node.name.startswith("_"):
            if not hasattr(ombrel, node.name):
                missing.append(node.name)
            elif isinstance(node, ast.ClassDef):
                cls = getattr(ombrel, node.name)
                missing += [f"{node.name}.{f.name}" for f in node.body if isinstance(f, ast.FunctionDef) and
                            not f.name.startswith("_") and not hasattr(cls, f.name)]
    assert missing == []
