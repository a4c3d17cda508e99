#!/bin/sh
# Builds the libraries of the MIPS target from Debian's own source packages,
# the same versions as the host's -dev packages, into DIR/prefix:
#   scripts/mips-deps.sh DIR
# Sources are fetched with `apt-get source` into DIR/src (nothing else is
# downloaded); GoogleTest comes from /usr/src/googletest. A stamp naming the
# versions makes a second run a no-op. Needs scripts/deps-mips.sh first.
set -e
dir=$1
[ -n "$dir" ] || { echo "usage: $0 DIR" >&2; exit 2; }
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
top=$(cd "$(dirname "$0")/.." && pwd)

version() { dpkg-query -W -f='${Version}' "$1"; }
sqlite_v=$(version libsqlite3-dev)
nanopb_v=$(version libnanopb-dev)
pugixml_v=$(version libpugixml-dev)
json_v=$(version nlohmann-json3-dev)
gtest_v=$(version libgtest-dev)
want="sqlite3=$sqlite_v nanopb=$nanopb_v pugixml=$pugixml_v nlohmann-json3=$json_v"
want="$want googletest=$gtest_v"
stamp="$dir/prefix/.versions"
[ -f "$stamp" ] && [ "$(cat "$stamp")" = "$want" ] && exit 0

echo "mips-deps: building $want"
rm -rf "$dir/src" "$dir/sqlite" "$dir/build" "$dir/prefix"
mkdir -p "$dir/src" "$dir/sqlite"
(cd "$dir/src" && apt-get source -qq "sqlite3=$sqlite_v" "nanopb=$nanopb_v" \
    "pugixml=$pugixml_v" "nlohmann-json3=$json_v" >/dev/null 2>"$dir/src/apt-get.log") || {
    cat "$dir/src/apt-get.log" >&2
    exit 1
}
# Upstream version without the Debian revision names the unpacked directory.
upstream() { echo "$1" | sed 's/^[0-9]*://; s/-[^-]*$//'; }
sqlite_src="$dir/src/sqlite3-$(upstream "$sqlite_v")"
nanopb_src="$dir/src/nanopb-$(upstream "$nanopb_v")"
pugixml_src="$dir/src/pugixml-$(upstream "$pugixml_v")"
json_src="$dir/src/nlohmann-json3-$(upstream "$json_v")"

# SQLite: Debian's compile-time options (its CFLAGS and the features its
# configure call turns on), and the amalgamation generated from its patched
# tree on the host; only the compile of sqlite3.c is for the target.
defs=$(grep -o -- '-DSQLITE_[A-Z0-9_]*\(=[0-9]*\)\?' "$sqlite_src/debian/rules" | tr '\n' ' ')
(cd "$dir/sqlite" && "$sqlite_src/configure" -q --disable-tcl --disable-readline \
    --enable-threadsafe --enable-load-extension --enable-json --enable-fts4 --enable-fts5 \
    CFLAGS="-O2 $defs" >configure.log 2>&1 && make -s sqlite3.c >make.log 2>&1) || {
    tail -20 "$dir/sqlite/configure.log" "$dir/sqlite/make.log" >&2
    exit 1
}
features=$(sed -n 's/^OPT_FEATURE_FLAGS = //p' "$dir/sqlite/Makefile")
sqlite_defs=$(for d in $defs $features; do echo "${d#-D}"; done | sort -u | tr '\n' ';')

cmake -S "$top/cmake/mips-deps" -B "$dir/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" \
    -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
    -DCMAKE_TOOLCHAIN_FILE="$top/cmake/mips-toolchain.cmake" \
    -DCMAKE_INSTALL_PREFIX="$dir/prefix" -DTALLYD_MIPS_PREFIX="$dir/prefix" \
    -DSQLITE_SRC="$dir/sqlite" -DSQLITE_DEFS="$sqlite_defs" \
    -DNANOPB_SRC="$nanopb_src" -DPUGIXML_SRC="$pugixml_src" \
    -DNLOHMANN_JSON_SRC="$json_src" >"$dir/cmake.log" ||
    { cat "$dir/cmake.log" >&2; exit 1; }
cmake --build "$dir/build" -j "${JOBS:-2}"
cmake --install "$dir/build" >/dev/null
echo "$want" >"$stamp"
