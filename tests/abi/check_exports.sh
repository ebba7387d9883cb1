#!/bin/sh
# check_exports.sh LIB SYMSDIR: the dynamic symbols LIB defines must be
# exactly those listed in SYMSDIR/*.syms (one a line, '#' comments), each
# under its version node: the first of SYMSDIR/nodes, or the one a "[NODE]"
# line above it names. LIB must define exactly the nodes of SYMSDIR/nodes.
set -eu
lib=$1 dir=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
strip() { sed 's/#.*//; s/[[:space:]]//g; /^$/d' "$@"; }

strip "$dir/nodes" >"$tmp/nodes"
base=$(head -n 1 "$tmp/nodes")
for f in "$dir"/*.syms; do
	strip "$f" | awk -v node="$base" -v f="$f" -v nodes="$tmp/nodes" '
		BEGIN { while ((getline n <nodes) > 0) known[n] = 1 }
		/^\[.*\]$/ { node = substr($0, 2, length($0) - 2)
			if (!(node in known)) { print f ": unknown node " node >"/dev/stderr"; exit 1 }
			next }
		{ print $0 "@@" node }'
done | sort >"$tmp/want"
nm -D --defined-only "$lib" | awk '$2 ~ /^[TDRBVWiu]$/ {print $3}' | sort >"$tmp/have"
status=0
if ! diff -u "$tmp/want" "$tmp/have"; then
	echo "exported symbols of $lib differ from $dir/*.syms (- listed only, + exported only)" >&2
	status=1
fi
# The version definitions, less the one naming the file itself.
readelf -V --wide "$lib" | awk '/Version definition section/ {d = 1; next} /Version needs section/ {d = 0}
	d && /Name:/ && !/Flags: BASE/ {for (i = 1; i < NF; ++i) if ($i == "Name:") print $(i + 1)}' |
	sort >"$tmp/defined"
sort "$tmp/nodes" >"$tmp/nodes.sorted"
if ! diff -u "$tmp/nodes.sorted" "$tmp/defined"; then
	echo "version nodes of $lib differ from $dir/nodes (- listed only, + defined only)" >&2
	status=1
fi
[ $status = 0 ] && echo "$(wc -l <"$tmp/have") symbols exported under $(wc -l <"$tmp/defined") nodes, as listed"
exit $status
