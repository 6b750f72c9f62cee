"""The package as a whole: its stubs tell the truth, its example runs."""

import pathlib
import subprocess
import sys

import pytest
import tarn

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGE = pathlib.Path(tarn.__file__).parent


def test_stubs_and_annotations(tmp_path):
    """The compiled module has what its stub says and nothing else, and the Python parts keep to it."""
    pytest.importorskip("mypy")
    commands = [
        ["-m", "mypy.stubtest", "tarn._tarn", "--allowlist", str(ROOT / "python/tests/stubtest.allow"), "--concise"],
        ["-m", "mypy", "--strict", "--cache-dir", str(tmp_path), *(word for module in
         ("tarn", "tarn._errors", "tarn._pickling", "tarn._types") for word in ("-m", module))],
    ]
    for command in commands:
        run = subprocess.run([sys.executable, *command], cwd=PACKAGE.parent, capture_output=True, text=True)
        assert run.returncode == 0, run.stdout + run.stderr


def test_every_name_has_a_stub():
    stub = (PACKAGE / "_tarn.pyi").read_text()
    classes = (tarn.Bitmap, tarn.Palette, tarn.Color, tarn.Ditherer, tarn.ResizedRows, tarn.RowResizer)
    for name in (name for kind in classes for name in dir(kind) if not name.startswith("_")):
        assert f"def {name}(" in stub, name


@pytest.mark.parametrize("example", sorted((ROOT / "examples").glob("*.py")), ids=lambda path: path.stem)
def test_examples_run(example):
    run = subprocess.run([sys.executable, example], capture_output=True, text=True)
    assert run.returncode == 0, run.stderr
