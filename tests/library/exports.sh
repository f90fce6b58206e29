#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Each shared object exports exactly its list: the plugin modules their map
# files, libskelda.so.0 its map under the version nodes SKELDA_0 and SKELDA_0.2
# (the names added in 0.2.0), and that map
# is exactly the set of names include/skelda/ declares.
#   exports.sh SOURCE_DIR LIBSKELDA MODULE_SKELDA MODULE_SKELDA_HQ
set -euo pipefail
src=$1 lib=$2 skelda=$3 skelda_hq=$4
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
map_names() { sed -nE '/global:/,/(local:|^})/s/^[[:space:]]+([A-Za-z_][A-Za-z0-9_]*);$/\1/p' "$1" | LC_ALL=C sort; }
# Defined dynamic symbols, less the version nodes (absolute symbols).
exported() { nm -D --defined-only "$1" | awk '$2 != "A" { print $3 }' | LC_ALL=C sort; }
same() {  # what expected-list actual-list
  diff -u --label "$1: expected" --label "$1: actual" <(echo "$2") <(echo "$3") || fail "$1"
}

# Every function and object the headers declare is marked SKELDA_API, so the
# names are the identifiers that SKELDA_API lines declare.
undecorated=$(grep -n '^[A-Za-z_].*(' "$src"/include/skelda/*.h | grep -v ':[0-9]*:SKELDA_API ' || true)
[ -z "$undecorated" ] || fail "declared without SKELDA_API: $undecorated"
declared=$(grep -h '^SKELDA_API ' "$src"/include/skelda/*.h | sed -E 's/[[(].*//; s/.*[ *]//' | LC_ALL=C sort)

same "libskelda.map against the headers" "$declared" "$(map_names "$src/config/libskelda.map")"
same "libskelda.so" "$declared" "$(exported "$lib" | sed -E 's/@@SKELDA_0(\.[0-9]+)?$//' | LC_ALL=C sort)"
readelf -d "$lib" | grep -q 'SONAME.*\[libskelda\.so\.0\]' || fail "libskelda's SONAME is not libskelda.so.0"

[ "$(map_names "$src/config/skelda_module.map" | wc -l)" = 87 ] || fail "skelda_module.map is not its 87 names"
same "skelda module" "$(map_names "$src/config/skelda_module.map")" "$(exported "$skelda")"
same "skelda_hq module" "$(map_names "$src/config/skelda_hq_module.map")" "$(exported "$skelda_hq")"
for module in "$skelda" "$skelda_hq"; do
  ! readelf -d "$module" | grep -q 'NEEDED.*libskelda' || fail "$module needs libskelda"
done

echo "exports: $((8 - failures)) passed, $failures failed"
[ "$failures" = 0 ]
