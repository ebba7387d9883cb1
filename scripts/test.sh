#!/bin/sh
# Builds a normal and an ASan/UBSan configuration (plus the fuzz targets
# when clang is there) and runs the whole suite through ctest.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
"$top/scripts/deps.sh"
# The real-kernel rig (ctest label "rig") boots guests under QEMU in the
# normal build; VEXO_SKIP_RIG=1 skips it for quick local runs.
[ "${VEXO_SKIP_RIG:-0}" = 1 ] || "$top/tests/rig/deps.sh"

jobs=$(nproc)
status=0

echo "== normal build =="
scripts/build.sh build -DCMAKE_BUILD_TYPE=RelWithDebInfo
(cd build && ctest --output-on-failure -j"$jobs" --timeout 600) || status=1

echo "== install, and a program built against the installed package =="
tests/abi/install_consumer.sh build || status=1

echo "== ASan/UBSan build =="
scripts/build.sh build-asan -DCMAKE_BUILD_TYPE=Debug -DVEXO_SANITIZE=ON -DVEXO_BENCH=OFF
(cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	ctest --output-on-failure -j"$jobs" --timeout 600 -LE rig) || status=1

if command -v clang++ >/dev/null 2>&1; then
	echo "== fuzz smoke runs =="
	CC=clang CXX=clang++ VEXO_BUILD_TARGET=fuzzers scripts/build.sh build-fuzz -DCMAKE_BUILD_TYPE=Debug -DVEXO_SANITIZE=ON \
		-DVEXO_FUZZ=ON -DVEXO_BENCH=OFF
	(cd build-fuzz && ctest --output-on-failure -j"$jobs" -L fuzz) || status=1
fi
exit $status
