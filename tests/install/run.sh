#!/usr/bin/env bash
# Installs a build tree into a temporary prefix, moves the prefix, and uses it from a separate
# project: through find_package (shared and static) and through pkg-config. Also checks which
# symbols the shared library exports, and the Python package.
#
#   run.sh BUILD-DIR COMPILER PYTHON
set -euo pipefail
build=$1 compiler=$2 python=$3
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/staged" >/dev/null
prefix=$scratch/prefix
mv "$scratch/staged" "$prefix"
export LD_LIBRARY_PATH=$prefix/lib

echo "== exported symbols"
"$python" "$here/check_exports.py" "$prefix/lib/libsylvora.so" "$prefix"/include/sylvora/*.h

echo "== find_package"
cmake -S "$here" -B "$scratch/consumer" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/consumer"
for kind in shared static; do
    "$scratch/consumer/consumer_$kind" "$scratch/$kind.txt"
done

echo "== pkg-config"
# The flags must be split into words.
# shellcheck disable=SC2046
PKG_CONFIG_PATH=$prefix/lib/pkgconfig "$compiler" -std=c++17 -o "$scratch/consumer_pkg" \
    "$here/main.cpp" $(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs sylvora)
"$scratch/consumer_pkg" "$scratch/pkg.txt"

cmp "$scratch/shared.txt" "$scratch/static.txt"
cmp "$scratch/shared.txt" "$scratch/pkg.txt"

echo "== the command"
"$prefix/bin/sylvora" --version

echo "== the Python package"
version=$("$python" -c 'import sys; print("%d.%d" % sys.version_info[:2])')
if [[ ! -d $prefix/lib/python$version ]]; then
    echo "this build has none for $python"
    exit 0
fi
package=$(echo "$prefix/lib/python$version"/*-packages/sylvora)
if [[ -n $(find "$package" -type l) ]]; then
    echo "links in $package: $(ls -l "$package")" >&2
    exit 1
fi
nm "$package"/_core*.so 2>&1 | grep 'no symbols'
(cd "$scratch" && PYTHONPATH=$(dirname "$package") "$python" - "$scratch/shared.txt" <<'EOF')
import sys
import sylvora

assert sylvora.__file__.startswith(sys.path[1]), sylvora.__file__
high = sylvora.OnlineTesting(sylvora.LoadModel(sys.argv[1]), [0.9, 3.0])[0]
assert abs(high - 10.0) < 0.01, high
EOF
