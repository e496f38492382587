#!/usr/bin/env bash
# Uses xmltree as its users get it, one mode per CTest test (label "package"):
#
#   package.sh install      BUILD_DIR PREFIX CONFIG HAS_TOOL
#       installs the build; checks what is there and what must not be
#   package.sh headers      PREFIX
#       compiles every installed header alone, with strict warnings as errors
#   package.sh find_package PREFIX WORK     builds the quick start with CMake
#   package.sh pkg_config   PREFIX WORK     ... and with pkg-config
#   package.sh shared       WORK
#       builds and installs a shared library (warnings as errors), then
#       find_package, pkg-config and the installed tool against it
#   package.sh subdirectory WORK COMPILER
#       a parent project that adds the sources with add_subdirectory, built
#       with strict warnings as errors
#
# Environment: XMLTREE_SOURCE (the repository), XMLTREE_CXX, XMLTREE_CXXFLAGS,
# XMLTREE_LDFLAGS (the build's compiler and flags, used against its install),
# XMLTREE_LAUNCHER (compiler launcher such as ccache, may be empty),
# XMLTREE_EXPECTED (the quick start's expected output).
# Exit status 77 (CTest: skipped) when a program a mode needs is missing;
# under CI (CI set) that is a failure instead, so that CI runs every mode.
set -eu
mode=$1
shift
src=$XMLTREE_SOURCE
cxx=${XMLTREE_CXX:-c++}
cxxflags=${XMLTREE_CXXFLAGS:-}
ldflags=${XMLTREE_LDFLAGS:-}
launcher=${XMLTREE_LAUNCHER:-}
strict="-Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Werror"
quickstart=$src/examples/quickstart.cpp

# skip MESSAGE: a program this mode needs is missing.
skip() {
    if [ -n "${CI:-}" ]; then
        echo "$1 (CI runs every package test)"
        exit 1
    fi
    echo "$1: skipped"
    exit 77
}

# run LOG COMMAND...: quiet unless it fails.
run() {
    local log=$1
    shift
    "$@" >"$log" 2>&1 || { cat "$log"; echo "failed: $*"; exit 1; }
}

# The quick start's output must be the one the repository expects.
check_quickstart() {
    "$1" >"$1.out"
    cmp "$XMLTREE_EXPECTED" "$1.out"
}

# configure_consumer BUILD_DIR COMPILER CXXFLAGS LDFLAGS EXTRA-CMAKE-ARGS...
configure_consumer() {
    local dir=$1 compiler=$2 flags=$3 lflags=$4
    shift 4
    mkdir -p "${dir%/*}"
    run "$dir.configure.log" cmake -S "$src/tests/package/consumer" -B "$dir" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" -DCMAKE_CXX_FLAGS="$flags" \
        -DCMAKE_EXE_LINKER_FLAGS="$lflags" -DQUICKSTART_SOURCE="$quickstart" "$@"
    run "$dir.build.log" cmake --build "$dir" -j2
}

find_package_consumer() {
    local prefix=$1 work=$2
    configure_consumer "$work/find_package" "$cxx" "$cxxflags" "$ldflags" \
        -DCMAKE_PREFIX_PATH="$prefix"
    check_quickstart "$work/find_package/quickstart"
    echo "find_package(xmltree) from $prefix: built and ran the quick start"
}

pkg_config_consumer() {
    local prefix=$1 work=$2
    command -v pkg-config >/dev/null || skip "pkg-config not installed"
    local pc
    pc=$(find "$prefix" -name xmltree.pc)
    [ -n "$pc" ] || { echo "xmltree.pc not installed"; exit 1; }
    export PKG_CONFIG_PATH=${pc%/*}
    pkg-config --exists 'xmltree >= 0.1' || { echo "pkg-config does not accept $pc"; exit 1; }
    local libdir cflags libs
    libdir=$(pkg-config --variable=libdir xmltree)
    cflags=$(pkg-config --cflags xmltree)
    mkdir -p "$work/pkg_config"
    local obj=$work/pkg_config/quickstart.o
    # shellcheck disable=SC2086  # flags are lists of words
    run "$obj.log" $cxx -std=c++17 -fPIC $cxxflags $cflags -c "$quickstart" -o "$obj"
    if [ -e "$libdir/libxmltree.so" ]; then
        libs="$(pkg-config --libs xmltree) -Wl,-rpath,$libdir"
    else
        libs=$(pkg-config --static --libs xmltree)
        # The archive is position-independent: it links into a shared library.
        # shellcheck disable=SC2086
        run "$obj.so.log" $cxx -shared $ldflags "$obj" -o "$work/pkg_config/libquick.so" $libs
    fi
    # shellcheck disable=SC2086
    run "$obj.exe.log" $cxx $ldflags "$obj" -o "$work/pkg_config/quickstart" $libs
    check_quickstart "$work/pkg_config/quickstart"
    echo "pkg-config ($libs): built and ran the quick start"
}

case $mode in
install)
    build=$1 prefix=$2 config=$3 has_tool=$4
    rm -rf "$prefix"
    run "$prefix.log" cmake --install "$build" --prefix "$prefix" ${config:+--config "$config"}
    (cd "$prefix" && find . -type f -o -type l | sort)
    missing=0
    for f in include/xmltree/TreeNode.h include/xmltree/StringConsumer.h \
        include/foundation/StringBuffer.h include/foundation/PooledObject.h; do
        [ -e "$prefix/$f" ] || { echo "not installed: $f"; missing=1; }
    done
    for f in xmltreeConfig.cmake xmltreeConfigVersion.cmake xmltree.pc libxmltree.a; do
        [ -n "$(find "$prefix" -name "$f")" ] || { echo "not installed: $f"; missing=1; }
    done
    if [ "$has_tool" = 1 ]; then
        [ -x "$prefix/bin/xmltree" ] || { echo "not installed: bin/xmltree"; missing=1; }
    fi
    # The library's own headers stay in the source tree.
    for f in xmltree/TreeWalk.h xmltree/TreeInternal.h foundation/ByteScan.h foundation/ByteCopy.h \
        foundation/SmallObjectPool.h; do
        [ ! -e "$prefix/include/$f" ] || { echo "installed but internal: $f"; missing=1; }
    done
    exit $missing
    ;;
headers)
    prefix=$1
    compilers=("$cxx")
    for c in g++ clang++; do
        command -v "$c" >/dev/null && compilers+=("$c")
    done
    count=0
    while IFS= read -r header; do
        rel=${header#"$prefix/include/"}
        for c in "${compilers[@]}"; do
            # Twice, so that a missing include guard shows too.
            # shellcheck disable=SC2086
            printf '#include "%s"\n#include "%s"\n' "$rel" "$rel" |
                $c -x c++ -std=c++17 -fsyntax-only $strict -I"$prefix/include" - ||
                { echo "does not compile on its own with $c: $rel"; exit 1; }
        done
        count=$((count + 1))
    done < <(find "$prefix/include" -name '*.h' | sort)
    [ "$count" -gt 0 ] || { echo "no header installed under $prefix/include"; exit 1; }
    echo "$count installed headers compile on their own (${compilers[*]})"
    ;;
find_package | pkg_config)
    rm -rf "$2"
    "${mode}_consumer" "$1" "$2"
    ;;
shared)
    work=$1
    rm -rf "$work"
    mkdir -p "$work"
    run "$work/configure.log" cmake -S "$src" -B "$work/build" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" \
        -DBUILD_SHARED_LIBS=ON -DXMLTREE_WERROR=ON \
        -DXMLTREE_BUILD_TESTS=OFF -DXMLTREE_BUILD_BENCH=OFF
    run "$work/build.log" cmake --build "$work/build" -j2
    run "$work/install.log" cmake --install "$work/build" --prefix "$work/prefix"
    [ -z "$(find "$work/prefix" -name 'libxmltree.a')" ] || { echo "static library installed"; exit 1; }
    [ -n "$(find "$work/prefix" -name 'libxmltree.so')" ] || { echo "no libxmltree.so"; exit 1; }
    "$work/prefix/bin/xmltree" --version  # finds the library through its run path
    # The shared build's own compiler and no extra flags.
    cxxflags="" ldflags=""
    find_package_consumer "$work/prefix" "$work"
    pkg_config_consumer "$work/prefix" "$work"
    ;;
subdirectory)
    work=$1 compiler=$2
    command -v "$compiler" >/dev/null || skip "$compiler not installed"
    rm -rf "$work"
    mkdir -p "$work"
    configure_consumer "$work/build" "$compiler" "$strict" "" -DXMLTREE_SOURCE_DIR="$src"
    check_quickstart "$work/build/quickstart"
    echo "add_subdirectory with $compiler $strict: built and ran the quick start"
    ;;
*)
    echo "unknown mode: $mode" >&2
    exit 2
    ;;
esac
