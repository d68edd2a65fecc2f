#!/bin/sh
# Set-up, build and run on a Debian 12 machine. As root, installs the Debian packages it needs
# when they are missing.
#   scripts/dev.sh tour   builds the library and the korvane tool, runs examples/tour.krv
#   scripts/dev.sh test   builds and runs every test, then again under asan+ubsan, and those of the
#                         hooks, callbacks and the sampler's threads under tsan,
#                         the API fuzzer for a minute and the script reader's for 20 s
set -eu
cd "$(dirname "$0")/.."

BUILD_PACKAGES="build-essential cmake ninja-build pkg-config libboost-dev libboost-filesystem-dev
  libboost-thread-dev libspdlog-dev libfmt-dev libcli11-dev libedit-dev libqhull-dev nlohmann-json3-dev"
TEST_PACKAGES="libgtest-dev libgmock-dev libbenchmark-dev python3 python3-jsonschema locales"
FUZZ_PACKAGES="clang libclang-rt-14-dev"
TSAN_TESTS="^(CallbacksTest|SegmentTest\\.LongWork|CyclesTest|Repair\\.)"

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

# Installs into a staging prefix and builds the example consumer against it, through the CMake
# package and through pkg-config, then runs both.
consumer() {
    stage="$PWD/build/stage"
    rm -rf "$stage" build/consumer build/client
    cmake --install build/debug --prefix "$stage" >/dev/null
    cmake -S examples/consumer -B build/consumer -G Ninja -DCMAKE_PREFIX_PATH="$stage" >/dev/null
    cmake --build build/consumer
    build/consumer/consumer
    # shellcheck disable=SC2046
    c++ -std=c++17 examples/consumer/main.cpp -o build/consumer/consumer-pc \
        $(PKG_CONFIG_PATH="$stage/lib/pkgconfig" pkg-config --cflags --libs korvaneapi) -Wl,-rpath,"$stage/lib"
    build/consumer/consumer-pc
    cmake -S examples/client -B build/client -G Ninja -DCMAKE_PREFIX_PATH="$stage" >/dev/null
    cmake --build build/client
    build/client/client "$stage/share/korvane/settings"
}

case "${1:-}" in
tour)
    need_packages $BUILD_PACKAGES
    cmake --preset debug -DKORVANE_BUILD_TESTS=OFF >/dev/null
    cmake --build --preset debug --target korvane
    build/debug/tools/korvane/korvane run examples/tour.krv
    ;;
test)
    need_packages $BUILD_PACKAGES $TEST_PACKAGES $FUZZ_PACKAGES
    cmake --preset debug -DKORVANE_BUILD_TESTS=ON >/dev/null
    cmake --build --preset debug
    ctest --preset debug -j "$(nproc)"
    consumer
    build asan
    ctest --preset asan -j "$(nproc)"
    # The tests that drive the hooks and callbacks, under the thread sanitizer.
    cmake --preset tsan >/dev/null
    cmake --build --preset tsan --target callbacks_test segment_test cycles_test repair_test
    ctest --preset tsan -j "$(nproc)" -R "$TSAN_TESTS"
    # The API fuzzer for a minute, from a copy of its corpus (a run adds to the folder it reads).
    cmake --preset fuzz -DKORVANE_BUILD_TESTS=OFF >/dev/null
    cmake --build --preset fuzz --target korvane_api_fuzz korvane_script_fuzz
    rm -rf build/fuzz/corpus-api && cp -r fuzz/corpus/api build/fuzz/corpus-api
    build/fuzz/fuzz/korvane_api_fuzz build/fuzz/corpus-api -max_total_time=60 -artifact_prefix=build/fuzz/
    # The tool's script reader for 20 s.
    rm -rf build/fuzz/corpus-script && cp -r fuzz/corpus/script build/fuzz/corpus-script
    build/fuzz/fuzz/korvane_script_fuzz build/fuzz/corpus-script -max_total_time=20 -artifact_prefix=build/fuzz/
    ;;
*)
    echo "usage: scripts/dev.sh tour|test" >&2
    exit 2
    ;;
esac
