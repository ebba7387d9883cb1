#!/bin/sh
# install_consumer.sh BUILD: installs the build tree BUILD into a temporary
# prefix, compiles every installed public header as C99, builds
# examples/consumer against the installed package with pkg-config and with
# CMake, and runs both builds and the installed CLI on a box made by the
# installed vexosim.
set -eu
build=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/../.." && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix
cc=${CC:-cc}
strict="-std=c99 -D_POSIX_C_SOURCE=200809L -pedantic -Werror -Wall -Wextra"

cmake --install "$build" --prefix "$prefix" >"$tmp/install.log"
pc=$(dirname "$(find "$prefix" -name libvexohw.pc)")
export PKG_CONFIG_PATH="$pc"
# The files name the configured prefix; this one was chosen at install time.
pc() { pkg-config --define-prefix "$@"; }
libdir=$(pc --variable=libdir libvexohw)
case $libdir in "$prefix"/*) ;; *) echo "libvexohw.pc points outside the prefix: $libdir" >&2; exit 1 ;; esac

(cd "$prefix/include" && ls vexohw/*.h vexoplatform/*.h) | sed 's/.*/#include <&>/' >"$tmp/headers.c"
$cc $strict -I"$prefix/include" -c "$tmp/headers.c" -o "$tmp/headers.o"

# shellcheck disable=SC2046 # pkg-config prints word lists
$cc $strict $(pc --cflags libvexohw) "$top/examples/consumer/consumer.c" -o "$tmp/consumer-pc" \
	$(pc --libs libvexohw)
cmake -S "$top/examples/consumer" -B "$tmp/consumer-cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$tmp/consumer-cmake" >/dev/null

"$prefix/bin/vexosim" build "$prefix/share/vexosim/box12.json" "$tmp/root" >/dev/null
for exe in "$tmp/consumer-pc" "$tmp/consumer-cmake/consumer"; do
	LD_LIBRARY_PATH=$libdir "$prefix/bin/vexosim" run "$tmp/root" -- "$exe" >"$tmp/out"
	if ! grep -q '^[1-9][0-9]* data disks$' "$tmp/out"; then
		echo "$exe listed no disks:" >&2
		cat "$tmp/out" >&2
		exit 1
	fi
done
# The installed CLI finds the installed libraries by itself.
if ldd "$prefix/bin/vexohw" | grep 'libvexo' | grep -v "=> $prefix/"; then
	echo "the installed vexohw loads libraries from outside $prefix" >&2
	exit 1
fi
"$prefix/bin/vexosim" run "$tmp/root" -- "$prefix/bin/vexohw" --json overview | grep -q '"disk_count": [1-9]'
echo "installed in a temporary prefix; consumer built with pkg-config and CMake; both listed: $(tail -n 1 "$tmp/out")"
