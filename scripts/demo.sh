#!/usr/bin/env bash
# Shows the daemon at work: a private bus, the main program at its installed path, the daemon as its
# child, and clients that send it requests.
#
#   scripts/demo.sh             sends about a dozen requests; fails unless every reply is right
#   scripts/demo.sh LINE...     sends each LINE as a request
#
# Installs what is missing on a Debian machine and builds. Everything else happens on a machine of its
# own, as root or as an ordinary user, and is gone in the end.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}"
[ -x build/demo/bin/brimletd ] || echo "Building"
quietly cmake --preset release -B build/demo -D BRIMLET_BUILD_TESTS=OFF
quietly cmake --build build/demo
BRIMLET_BUILD=build/demo exec scripts/demo.py "$@"
