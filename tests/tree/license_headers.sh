#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Every source, script and build file carries the MIT SPDX line in its first
# three lines (after a #! line or a generated-file banner). Texts, packaging
# metadata and the fuzz corpus are data, not code, and are not checked.
set -euo pipefail
root=${1:-$(dirname "$0")/../..}
cd "$root"
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  files=$(git ls-files)
else
  # A copy without git: build trees hold generated files, leave them out.
  files=$(find . -type f -not -path './build*' -not -path './obj-*' | sed 's|^\./||')
fi
code='\.(c|cpp|h|sh|py|cmake|map|conf|in)$|(^|/)CMakeLists\.txt$|^debian/rules$|^\.ci/run$'
missing=0 checked=0
while IFS= read -r f; do
  case "$f" in tests/fuzz/corpus/*) continue ;; esac
  [[ "$f" =~ $code ]] || continue
  checked=$((checked + 1))
  if ! head -3 "$f" | grep -q 'SPDX-License-Identifier: MIT'; then
    echo "no SPDX-License-Identifier: MIT line at the top of $f"
    missing=$((missing + 1))
  fi
done <<<"$files"
echo "$checked files checked, $missing without the line"
[ "$checked" -gt 100 ] && [ "$missing" = 0 ]
