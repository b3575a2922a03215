#!/bin/sh
# Installs, with apt-get, whatever the build needs and this Debian machine lacks.
# usage: tools/ensure-deps.sh [extra packages...]
set -eu
packages="cmake ninja-build g++ pkg-config libcjson-dev libgtest-dev libgmock-dev libbenchmark-dev $*"
missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
echo "installing:$missing"
sudo_cmd=""
[ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
$sudo_cmd apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends $missing
