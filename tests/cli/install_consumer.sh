#!/usr/bin/env bash
# Installs the build into a fresh prefix, then configures, builds and runs the
# quick start as a separate project that finds the package there.
#   install_consumer.sh BUILD_DIR WORK_DIR SOURCE_DIR CXX CXXFLAGS LDFLAGS [CONFIG]
set -eu
build=$1 work=$2 source=$3 cxx=$4 cxxflags=$5 ldflags=$6 config=${7:-}
rm -rf "$work"
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" ${config:+--config "$config"} >"$work/install.log"
for f in include/xmltree/TreeNode.h include/foundation/StringBuffer.h bin/xmltree; do
    [ -e "$prefix/$f" ] || { echo "not installed: $f"; exit 1; }
done
"$prefix/bin/xmltree" --version

cmake -S "$source/tests/cli/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$cxxflags" \
    -DCMAKE_EXE_LINKER_FLAGS="$ldflags" -DCMAKE_BUILD_TYPE=Release \
    -DQUICKSTART_SOURCE="$source/examples/quickstart.cpp" >"$work/configure.log" ||
    { cat "$work/configure.log"; exit 1; }
cmake --build "$work/build" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/build/quickstart" >"$work/quickstart.out"
cmp "$source/tests/cli/expected/quickstart.out" "$work/quickstart.out"
echo "installed package found and used"
