#!/bin/sh
# Set-up, build and run on a Debian 12 machine. As root, installs the Debian packages it needs
# when they are missing.
#   scripts/dev.sh tour   builds the library and the korvane tool, runs examples/tour.krv
#   scripts/dev.sh test   builds and runs every test, then again under asan+ubsan
set -eu
cd "$(dirname "$0")/.."

BUILD_PACKAGES="build-essential cmake ninja-build pkg-config libboost-dev libboost-filesystem-dev
  libboost-thread-dev libspdlog-dev libfmt-dev libcli11-dev libedit-dev libqhull-dev"
TEST_PACKAGES="libgtest-dev libgmock-dev libbenchmark-dev"

need_packages() {
    missing=""
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed" || missing="$missing $package"
    done
    [ -z "$missing" ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        echo "dev.sh: missing Debian packages:$missing (run as root to install them)" >&2
        exit 1
    fi
    echo "dev.sh: installing$missing"
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing
}

build() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1"
}

case "${1:-}" in
tour)
    need_packages $BUILD_PACKAGES
    cmake --preset debug -DKORVANE_BUILD_TESTS=OFF >/dev/null
    cmake --build --preset debug --target korvane
    build/debug/tools/korvane/korvane run examples/tour.krv
    ;;
test)
    need_packages $BUILD_PACKAGES $TEST_PACKAGES
    cmake --preset debug -DKORVANE_BUILD_TESTS=ON >/dev/null
    cmake --build --preset debug
    ctest --preset debug -j "$(nproc)"
    build asan
    ctest --preset asan -j "$(nproc)"
    ;;
*)
    echo "usage: scripts/dev.sh tour|test" >&2
    exit 2
    ;;
esac
