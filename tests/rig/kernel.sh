#!/bin/sh
# kernel.sh DIR: unpacks Debian's current amd64 kernel package (the one that
# linux-image-amd64 depends on today) into DIR/<version>, with its module
# index built, and prints <version>. Nothing is installed; a tree that is
# already there is reused.
set -eu
dir=$1
mkdir -p "$dir"

resolve() {
	apt-cache depends linux-image-amd64 2>/dev/null |
		sed -n 's/^ *Depends: \(linux-image-[0-9][^ ]*-amd64\)$/\1/p' | head -n 1
}
pkg=$(resolve)
if [ -z "$pkg" ]; then
	# Package lists may be missing on a fresh machine.
	timeout 300 apt-get update -qq >&2
	pkg=$(resolve)
fi
[ -n "$pkg" ] || { echo "kernel.sh: no kernel package behind linux-image-amd64" >&2; exit 1; }
ver=${pkg#linux-image-}

if [ -f "$dir/$ver/.unpacked" ]; then
	echo "$ver"
	exit 0
fi

tmp=$(mktemp -d "$dir/.fetch.XXXXXX")
trap 'rm -rf "$tmp"' EXIT INT TERM
(cd "$tmp" && timeout 600 apt-get download -q -o APT::Sandbox::User=root "$pkg" >&2)
deb=$(ls "$tmp"/*.deb)
dpkg-deb -x "$deb" "$tmp/root"
[ -f "$tmp/root/boot/vmlinuz-$ver" ] || { echo "kernel.sh: $pkg has no /boot/vmlinuz-$ver" >&2; exit 1; }
depmod -b "$tmp/root" "$ver"
rm -rf "$dir/$ver"
mv "$tmp/root" "$dir/$ver"
touch "$dir/$ver/.unpacked"
echo "$ver"
