#!/usr/bin/env bash
# Builds the installed oneTBB again from its Debian source package with -fsanitize=thread and
# prints the folder that holds the instrumented libtbb.so.12. ThreadSanitizer cannot see how an
# uninstrumented TBB hands tasks to its workers and reports thousands of races in every parallel
# loop; with this library first on LD_LIBRARY_PATH it sees every hand-off. The result is kept in
# DIR and built once per oneTBB version.
#
#   bash scripts/tsan-tbb.sh DIR
set -euo pipefail

DIR=$(mkdir -p "$1" && cd "$1" && pwd)
SOURCE=$(dpkg-query -W -f='${source:Package}=${source:Version}' libtbb-dev)
STAMP="$DIR/built-from"
LIBDIR="$DIR/lib"
if [ -f "$STAMP" ] && [ "$(cat "$STAMP")" = "$SOURCE" ] && [ -e "$LIBDIR/libtbb.so.12" ]; then
  echo "$LIBDIR"
  exit 0
fi

# A private list of Debian's source packages: the machine's own apt sources stay as they are.
# The suites are those of the machine's binary packages.
. /etc/os-release
APT="$DIR/apt"
rm -rf "$APT" "$DIR/src" "$DIR/build"
mkdir -p "$APT/lists/partial"
KEYRING=/usr/share/keyrings/debian-archive-keyring.gpg
cat >"$APT/sources.list" <<EOF
deb-src [signed-by=$KEYRING] http://deb.debian.org/debian $VERSION_CODENAME $VERSION_CODENAME-updates main
deb-src [signed-by=$KEYRING] http://deb.debian.org/debian-security $VERSION_CODENAME-security main
EOF
OPTIONS=(-o "Dir::Etc::SourceList=$APT/sources.list" -o "Dir::Etc::SourceParts=$APT/none"
         -o "Dir::State::Lists=$APT/lists" -o "APT::Sandbox::User=root")
apt-get "${OPTIONS[@]}" -qq update >&2
(cd "$APT" && apt-get "${OPTIONS[@]}" -qq source --download-only "$SOURCE" >&2)
dpkg-source -x "$APT"/*.dsc "$DIR/src" >&2

# Only the task scheduler library: the project links nothing else of TBB.
cmake -S "$DIR/src" -B "$DIR/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTBB_SANITIZE=thread \
  -DTBB_TEST=OFF -DTBB_EXAMPLES=OFF -DTBBMALLOC_BUILD=OFF -DTBB_STRICT=OFF >&2
flock /tmp/vorn-build.lock cmake --build "$DIR/build" -j "$(nproc)" --target tbb >&2
mkdir -p "$LIBDIR"
cp -P "$DIR"/build/*/libtbb.so* "$LIBDIR/"
echo "$SOURCE" >"$STAMP"
echo "$LIBDIR"
