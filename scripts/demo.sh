#!/bin/sh
# Builds vexohw and runs it on the bundled simulated appliance.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
"$top/scripts/deps.sh"
scripts/build.sh build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
root=${1:-$top/examples/sample-sysroot}
echo "# vexohw on $root"
echo
echo "\$ vexohw status tables health"
build/bin/vexohw --sysroot "$root" status tables health
echo "\$ vexohw cache show"
build/bin/vexohw --sysroot "$root" cache show
