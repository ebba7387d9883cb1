#!/bin/sh
# build.sh DIR [cmake options...]: configures (once) and builds one tree.
set -eu
dir=$1
shift
top=$(cd "$(dirname "$0")/.." && pwd)
if [ ! -f "$dir/build.ninja" ]; then
	cmake -S "$top" -B "$dir" -G Ninja "$@" >/dev/null
fi
cmake --build "$dir" -- -j"$(nproc)"
