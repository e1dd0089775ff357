#!/usr/bin/env bash
# Encoding to the nearest of 256 code vectors: the library's time beside that of SciPy's cdist(cityblock) with argmin, on
# the same values. Needs the Debian package python3-scipy.
#
#   bench/compare_scipy.sh BUILD_DIR
set -euo pipefail
export LC_ALL=C
if [[ $# -ne 1 || ! -x $1/bench/bench_ksvq ]]; then
    echo "usage: $0 BUILD_DIR (with bench/bench_ksvq built)" >&2
    exit 1
fi
python=/usr/bin/python3  # where the Debian package goes
if ! "$python" -c 'import scipy.spatial' 2> /dev/null; then
    echo "SciPy is not installed (Debian package python3-scipy); nothing to compare with." >&2
    exit 0
fi
"$1/bench/bench_ksvq" --benchmark_filter=encodeNearest --benchmark_format=csv 2> /dev/null |
    awk -F, '/^"encodeNearest/ { printf "KSXVQEncodeNearest           %8.1f ms\n", $3 }'
OMP_NUM_THREADS=1 "$python" - <<'PYTHON'
import time
import numpy as np
from scipy.spatial.distance import cdist

SIZE, BANDS, VECTORS = 100, 198, 256

# The same generator and spectra as the benchmark.
count = (SIZE * SIZE + VECTORS) * (BANDS + 2)
states = np.empty(count, np.uint32)
state = 1
for i in range(count):
    state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
    states[i] = state
numbers = (states >> 16).astype(np.float32).reshape(-1, BANDS + 2)
brightness, slope = numbers[:, :1] / np.float32(16), numbers[:, 1:2] / np.float32(65536)
shape = 1 + slope * np.arange(BANDS, dtype=np.float32) / np.float32(BANDS)
spectra = np.floor(brightness * shape + numbers[:, 2:] / np.float32(1024)).astype(np.float64)
codebook, pixels = spectra[:VECTORS], spectra[VECTORS:]

best = float("inf")
for _ in range(5):
    start = time.perf_counter()
    cdist(pixels, codebook, "cityblock").argmin(axis=1)
    best = min(best, time.perf_counter() - start)
print(f"SciPy cdist + argmin         {1e3 * best:8.1f} ms   (best of 5, doubles ready in memory)")
PYTHON
