#!/usr/bin/env bash
# Non-negative unmixing of 100 x 100 pixels of 198 bands: the library's time beside that of SciPy's nnls called for each
# pixel, on the same values. Needs the Debian package python3-scipy.
#
#   bench/compare_unmix_scipy.sh BUILD_DIR
set -euo pipefail
export LC_ALL=C
if [[ $# -ne 1 || ! -x $1/bench/bench_ksunmix ]]; then
    echo "usage: $0 BUILD_DIR (with bench/bench_ksunmix built)" >&2
    exit 1
fi
python=/usr/bin/python3  # where the Debian package goes
if ! "$python" -c 'import scipy.optimize' 2> /dev/null; then
    echo "SciPy is not installed (Debian package python3-scipy); nothing to compare with." >&2
    exit 0
fi
"$1/bench/bench_ksunmix" --benchmark_filter='^windowNonNegative' --benchmark_format=csv 2> /dev/null |
    awk -F, '/^"window/ { split($1, name, "/"); printf "KSXUnmixWin, %2d endmembers  %9.1f ms\n", name[2], $4 }'
OMP_NUM_THREADS=1 "$python" - <<'PYTHON'
import time
import numpy as np
from scipy.optimize import nnls

PIXELS, BANDS = 10000, 198


def numbers():
    state = 1
    while True:
        state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
        yield (state >> 16) / 65536.0


# The same generator, endmembers and pixels as the benchmark.
for count in (4, 8, 16):
    source = numbers()
    matrix = np.empty((BANDS, count))
    band = np.arange(BANDS)
    for e in range(count):
        level, frequency, phase = 500 + 3000 * next(source), 4 + 12 * next(source), 6 * next(source)
        matrix[:, e] = np.floor(level * (1 + 0.5 * np.sin(frequency * band / BANDS + phase)))
    values = np.fromiter(source, float, PIXELS * (count + BANDS)).reshape(PIXELS, count + BANDS)
    weights = np.where(values[:, :count] < 0.5, 0, 2 * (values[:, :count] - 0.5))
    pixels = np.floor(100 * (values[:, count:] - 0.5) + weights @ matrix.T)
    start = time.process_time()
    for pixel in pixels:
        nnls(matrix, pixel)
    print(f"SciPy nnls,  {count:2} endmembers  {1e3 * (time.process_time() - start):9.1f} ms   (doubles ready in memory)")
PYTHON
