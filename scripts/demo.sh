#!/usr/bin/env bash
# Shows the daemon at work: a private bus, the main program at its installed path, the daemon as its
# child, and a client at the casting engine's installed path that sends it requests.
#
#   scripts/demo.sh             sends about a dozen requests; fails unless every reply is right
#   scripts/demo.sh LINE...     sends each LINE as a request
#
# Installs what is missing on a Debian machine and builds. Everything else happens in a mount
# namespace of its own and in a temporary folder, as root or as an ordinary user, and is gone in the
# end.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}"
[ -x build/demo/bin/brimletd ] || echo "Building"
quietly cmake --preset release -B build/demo -D BRIMLET_BUILD_TESTS=OFF
quietly cmake --build build/demo

# An ordinary user, and root in a container, get the right to mount from a user namespace.
namespace=(unshare --mount)
if [ "$(id -u)" -ne 0 ] || ! unshare --mount true 2>/dev/null; then
  namespace=(unshare --map-root-user --mount)
fi
exec "${namespace[@]}" scripts/demo_session.sh build/demo/bin/brimletd \
  build/demo/examples/main_program build/demo/packaging/com.tolvane.brimlet.conf "$@"
