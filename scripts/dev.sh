#!/bin/sh
# Set-up, build and run on a Debian 12 machine. As root, installs the Debian packages it needs
# when they are missing.
#   scripts/dev.sh tour   builds the library and the korvane tool, runs examples/tour.krv
#   scripts/dev.sh python builds the library and the Python module, runs examples/python/coins.py
#   scripts/dev.sh test   builds and runs every test, then again under asan+ubsan, and those of the
#                         hooks, callbacks and the sampler's threads under tsan,
#                         the API fuzzer for a minute, the script, image and settings readers' for
#                         20 s each
set -eu
cd "$(dirname "$0")/.."

BUILD_PACKAGES="build-essential cmake ninja-build pkg-config libboost-dev libboost-filesystem-dev
  libboost-thread-dev libspdlog-dev libfmt-dev libcli11-dev libedit-dev libqhull-dev nlohmann-json3-dev
  libtiff-dev libpng-dev"
PYTHON_PACKAGES="python3-dev pybind11-dev python3-numpy python3-skimage"
TEST_PACKAGES="libgtest-dev libgmock-dev libbenchmark-dev python3 python3-jsonschema locales python3-skimage
  python3-dev pybind11-dev python3-numpy python3-pytest"
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

# The package installed in prefix $1 with its libraries in $1/$2: no test build or fault-point
# header among them, no run path, and no export beyond the suite's interface.
check_installed() {
    libraries="$1/$2"
    if ls "$libraries" | grep -q _faults \
        || [ -e "$1/include/KorvaneAPI/host/vantry_util/KrvFault.h" ]; then
        echo "dev.sh: test builds or fault points installed in $1" >&2
        exit 1
    fi
    for library in "$libraries"/libKorvaneAPI.so.1 "$libraries"/libvantry_*.so.1; do
        if readelf -d "$library" | grep -q -e RPATH -e RUNPATH; then
            echo "dev.sh: $library has a run path" >&2
            exit 1
        fi
    done
    cmake -DLIBRARIES="$(ls "$libraries"/libvantry_*.so.1 | paste -sd, -)" -P tests/check_host_symbols.cmake
}

# Builds the example consumer against the package installed in prefix $1 with its libraries in
# $1/$2, through the CMake package and through pkg-config, and runs both; then the client example.
# The libraries carry no run path: LD_LIBRARY_PATH finds them (the linker too, for the library's
# own dependencies). With $1 and $2 empty, the package
# must be found where the system looks (installed under /usr).
build_consumers() {
    libraries="${1:+$1/$2}"
    rm -rf build/consumer build/client
    cmake -S examples/consumer -B build/consumer -G Ninja -DCMAKE_PREFIX_PATH="$1" >/dev/null
    cmake --build build/consumer
    LD_LIBRARY_PATH="$libraries" build/consumer/consumer
    # shellcheck disable=SC2046
    LD_LIBRARY_PATH="$libraries" c++ -std=c++17 examples/consumer/main.cpp -o build/consumer/consumer-pc \
        $(PKG_CONFIG_PATH="${libraries:+$libraries/pkgconfig}" pkg-config --cflags --libs korvaneapi)
    LD_LIBRARY_PATH="$libraries" build/consumer/consumer-pc
    cmake -S examples/client -B build/client -G Ninja -DCMAKE_PREFIX_PATH="$1" >/dev/null
    cmake --build build/client
    LD_LIBRARY_PATH="$libraries" build/client/client "${1:-/usr}/share/korvane/settings"
    # Why a call failed, read through a log sink with the installed headers alone.
    rm -rf build/log_sink
    cmake -S examples/log_sink -B build/log_sink -G Ninja -DCMAKE_PREFIX_PATH="$1" >/dev/null
    cmake --build build/log_sink
    LD_LIBRARY_PATH="$libraries" build/log_sink/log_sink >build/log_sink/output.txt
    grep -q "Invalid user filter formula" build/log_sink/output.txt
}

# Installs the debug build into a staging prefix, with the libraries in lib/ and then in Debian's
# multiarch folder, and builds the consumers against each; then makes the Debian package,
# installs it, builds the consumers against /usr and purges the package. The build folder's
# install settings are reset at the end.
consumer() {
    stage="$PWD/build/stage"
    multiarch="lib/$(cc -print-multiarch)"
    for libdir in lib "$multiarch"; do
        rm -rf "$stage"
        cmake build/debug -DCMAKE_INSTALL_LIBDIR="$libdir" >/dev/null
        cmake --install build/debug --prefix "$stage" >/dev/null
        check_installed "$stage" "$libdir"
        build_consumers "$stage" "$libdir"
    done
    cmake build/debug -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="$multiarch" >/dev/null
    (cd build/debug && cpack -G DEB >/dev/null)
    package=$(ls build/debug/korvaneapi_*.deb)
    python_module=$(dpkg-deb -c "$package" | grep -c "/korvane\.cpython-.*\.so$" || true)
    if [ "$python_module" -ne 0 ] && ! dpkg-deb -f "$package" Depends | grep -q "python3 (<<.*python3-numpy"; then
        echo "dev.sh: $package carries the Python module without depending on python3 and python3-numpy" >&2
        exit 1
    fi
    if [ "$(id -u)" -eq 0 ]; then
        trap 'dpkg -P korvaneapi >/dev/null' EXIT
        dpkg -i "$package" >/dev/null
        check_installed /usr "$multiarch"
        build_consumers "" ""
        if [ "$python_module" -ne 0 ]; then
            (cd / && /usr/bin/python3 -c "import korvane; korvane.initKorvaneAPI(); korvane.endKorvaneAPI()")
        fi
        dpkg -P korvaneapi >/dev/null
        trap - EXIT
    else
        echo "dev.sh: not root, the Debian package is built but not installed"
    fi
    cmake build/debug -UCMAKE_INSTALL_PREFIX -UCMAKE_INSTALL_LIBDIR >/dev/null
}

# Runs fuzzer NAME for SECONDS from a copy of its corpus (a run adds to the folder it reads).
fuzz_for() {
    rm -rf "build/fuzz/corpus-$1" && cp -r "fuzz/corpus/$1" "build/fuzz/corpus-$1"
    "build/fuzz/fuzz/korvane_$1_fuzz" "build/fuzz/corpus-$1" -max_total_time="$2" -artifact_prefix=build/fuzz/
}

case "${1:-}" in
tour)
    need_packages $BUILD_PACKAGES
    cmake --preset debug -DKORVANE_BUILD_TESTS=OFF >/dev/null
    cmake --build --preset debug --target korvane
    build/debug/tools/korvane/korvane run examples/tour.krv
    ;;
python)
    need_packages $BUILD_PACKAGES $PYTHON_PACKAGES
    cmake --preset debug -DKORVANE_BUILD_TESTS=OFF >/dev/null
    cmake --build --preset debug --target korvane_python
    PYTHONPATH=build/debug/python /usr/bin/python3 examples/python/coins.py
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
    # The fuzzers, each from a copy of its corpus.
    cmake --preset fuzz -DKORVANE_BUILD_TESTS=OFF >/dev/null
    cmake --build --preset fuzz --target korvane_api_fuzz korvane_script_fuzz korvane_image_fuzz korvane_settings_fuzz
    fuzz_for api 60
    fuzz_for script 20
    fuzz_for image 20
    fuzz_for settings 20
    ;;
*)
    echo "usage: scripts/dev.sh tour|python|test" >&2
    exit 2
    ;;
esac
