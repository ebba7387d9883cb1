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

echo "== no exception leaves an exported function (clang-tidy) =="
# Every name of the export lists must not throw; the check reads the
# compilation database of the normal build.
names=$(sed 's/#.*//' abi/*/*.syms | tr -d ' \t' | grep -v '^$' | paste -sd,)
tidy_log=$(mktemp)
if ! git ls-files 'src/*.cpp' 'platform/*.cpp' | xargs -P"$jobs" -n16 clang-tidy -p build --quiet \
	--config="{Checks: '-*,bugprone-exception-escape', WarningsAsErrors: '*', CheckOptions: [{key: bugprone-exception-escape.FunctionsThatShouldNotThrow, value: '$names'}]}" \
	>"$tidy_log" 2>&1; then
	grep -v 'warnings generated\.$' "$tidy_log" || true
	status=1
fi
rm -f "$tidy_log"

echo "== ThreadSanitizer: the cache-writer thread test =="
VEXO_BUILD_TARGET=test_threads_tsan scripts/build.sh build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEXO_TSAN=ON \
	-DVEXO_BENCH=OFF
(cd build-tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure --timeout 300) || status=1

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
