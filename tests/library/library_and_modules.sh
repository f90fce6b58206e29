#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the program that links libskelda and plays through the modules, and
# checks that the modules bound none of their own engine names to the
# program's libskelda.
#   library_and_modules.sh PROGRAM MODULE_DIR
set -euo pipefail
program=$1
log=$(mktemp -d /tmp/skelda-bindings-XXXXXX)
trap 'rm -rf "$log"' EXIT
# SKELDA_EMULATOR: how a cross build runs the target's programs.
ALSA_PLUGIN_DIR=$2 LD_DEBUG=bindings LD_DEBUG_OUTPUT="$log/ld" ${SKELDA_EMULATOR:-} "$program"
crossed=$(cat "$log"/ld.* | grep -E 'libasound_module_rate_skelda(_hq)?\.so .* to .*libskelda\.so' || true)
[ -z "$crossed" ] || { echo "FAIL: a module calls into the program's libskelda:"; echo "$crossed" | head; exit 1; }
