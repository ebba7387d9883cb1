#!/bin/sh
# build.sh DIR [cmake options...]: configures (once) and builds one tree.
# VEXO_BUILD_TARGET names one target to build instead of all.
set -eu
dir=$1
shift
top=$(cd "$(dirname "$0")/.." && pwd)
if [ ! -f "$dir/build.ninja" ]; then
	cmake -S "$top" -B "$dir" -G Ninja "$@" >/dev/null
fi
cmake --build "$dir" ${VEXO_BUILD_TARGET:+--target "$VEXO_BUILD_TARGET"} -- -j"$(nproc)"
