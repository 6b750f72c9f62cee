"""What the cheapest calls take beside the same ones in C: the best of nine rounds each, in nanoseconds.

usage: PYTHONPATH=build/release/python calls.py FOLDER    (the build tree with libtarn)
"""

import pathlib
import subprocess
import sys
import tempfile
import time

import tarn

ROUNDS, CALLS = 9, 50_000
HERE = pathlib.Path(__file__).resolve().parent


def in_c(tree: pathlib.Path) -> dict[str, float]:
    with tempfile.TemporaryDirectory() as folder:
        program = pathlib.Path(folder, "calls")
        subprocess.run(
            ["cc", "-O2", HERE / "calls.c", f"-I{HERE.parents[1]}/include", f"-L{tree}", "-ltarn",
             f"-Wl,-rpath,{tree}", "-o", program], check=True,
        )
        printed = subprocess.run([program], check=True, capture_output=True, text=True).stdout
    return {name: float(each) for name, each in (line.split() for line in printed.splitlines())}


def best(call) -> float:
    times = []
    for _ in range(ROUNDS):
        began = time.perf_counter_ns()
        for _ in range(CALLS):
            call()
        times.append((time.perf_counter_ns() - began) / CALLS)
    return min(times)


def main() -> None:
    bitmap = tarn.Bitmap(1, 1, 24)
    data, color = bytes(3), tarn.Color(1, 2, 3)
    calls = {
        "width": lambda: bitmap.width,
        "row": lambda: bitmap.row(0),
        "put_row": lambda: bitmap.put_row(0, data),
        "pixel": lambda: bitmap.pixel(0, 0),
        "put_pixel": lambda: bitmap.put_pixel(0, 0, color),
        "clear": lambda: bitmap.clear(),
    }
    native = in_c(pathlib.Path(sys.argv[1]).resolve())
    nothing = best(lambda: None)
    print(f"{'call':10} {'C':>8} {'Python':>8} {'more':>8}    (a call of an empty lambda, {nothing:.0f} ns, taken off)")
    for name, call in calls.items():
        each = best(call) - nothing
        print(f"{name:10} {native[name]:8.0f} {each:8.0f} {each - native[name]:8.0f}")


if __name__ == "__main__":
    main()
