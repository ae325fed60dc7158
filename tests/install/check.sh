#!/usr/bin/env bash
# Installs a build and uses it as a stranger would, with CMake and with pkg-config.
# usage: check.sh BUILD_DIR WORK_DIR
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$1
work=$2

fail()
{
    echo "install check: $*" >&2
    exit 1
}

# Installed afresh, so that a header which is no longer installed cannot linger, and then moved, so
# that nothing can depend on the place it was installed to.
mkdir -p "$work"
work=$(cd "$work" && pwd)
prefix=$work/prefix
rm -rf "$work/staging" "$prefix"
cmake --install "$build" --prefix "$work/staging" >"$work/install.log" || {
    cat "$work/install.log"
    fail "cmake --install failed"
}
mv "$work/staging" "$prefix"

library=$(find "$prefix" -name libdatabase.so)
[ -n "$library" ] || fail "libdatabase.so is not installed"
libdir=$(dirname "$library")
major=$(sed -n 's/^#define DATABASE_VERSION_MAJOR //p' "$prefix/include/database/database_global.h")
soname=$(LC_ALL=C readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
[ "$soname" = "libdatabase.so.$major" ] || fail "SONAME is '$soname', not libdatabase.so.$major"
private=$(find "$prefix/include" -name '*private.h' -o -name '*_p.h')
[ -z "$private" ] || fail "private headers are installed: $private"

cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/configure.log" || {
    cat "$work/configure.log"
    fail "find_package(Database) failed"
}
grep -q "Database_DIR:PATH=$prefix/" "$work/cmake/CMakeCache.txt" ||
    fail "find_package(Database) found another installation"
cmake --build "$work/cmake" || fail "the CMake consumer does not build"
"$work/cmake/consumer" || fail "the CMake consumer fails"

export PKG_CONFIG_PATH=$libdir/pkgconfig
version=$(pkg-config --modversion database)
read -r -a flags <<<"$(pkg-config --cflags --libs database)"
"${CXX:-g++}" -std=c++17 -Wall -Wextra -Wpedantic -Werror -DQT_NO_KEYWORDS \
    "-DPACKAGE_VERSION=\"$version\"" -I"$work/cmake/generated" \
    -o "$work/pkgconfig-consumer" "$here/main.cpp" "${flags[@]}" ||
    fail "pkg-config's flags do not build the consumer"
LD_LIBRARY_PATH=$libdir "$work/pkgconfig-consumer" || fail "the pkg-config consumer fails"

echo "install check: $(find "$prefix/include" -name '*.h' | wc -l) headers, CMake and pkg-config"
