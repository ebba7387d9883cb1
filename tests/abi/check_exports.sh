#!/bin/sh
# check_exports.sh LIB SYMSDIR: the dynamic symbols LIB defines must be
# exactly those listed in SYMSDIR/*.syms (one per line, '#' comments).
set -eu
lib=$1 dir=$2
want=$(mktemp) have=$(mktemp)
trap 'rm -f "$want" "$have"' EXIT
cat "$dir"/*.syms | sed 's/#.*//; s/[[:space:]]//g; /^$/d' | sort -u >"$want"
nm -D --defined-only "$lib" | awk '$2 ~ /^[TDRBVWiu]$/ {print $3}' | sed 's/@.*//' | grep -v '^VEXO[A-Z]*_[0-9]*$' | sort -u >"$have"
if ! diff -u "$want" "$have"; then
	echo "exported symbols of $lib differ from $dir/*.syms (- listed only, + exported only)" >&2
	exit 1
fi
echo "$(wc -l <"$have") symbols exported, as listed"
