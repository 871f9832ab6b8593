#!/usr/bin/env bash
# usage: show_tree.sh BIN_FOLDER MODEL
# Starts client, relay and handler on a model, asks, closes, and shows what happened and that nothing is left.
set -euo pipefail
bin="$1"
model="$2"

step() { printf '\n$ dor %s\n' "$*"; "$bin/dor" "$@"; }
step open "$model"
step call "$model" DoNothing
step call "$model" GetAsmTreeInfo --json
step call "$model" GetFilletIntCurve 3 7 || echo "(exit code $?: the handler does not offer this)"
step open "$model.missing" || echo "(exit code $?: no such model)"
step bench "$model" --requests 2000

left=$(find "$bin" "$(dirname "$model")" -maxdepth 1 -name 'ZUR_TMP_FOLDER-*' | wc -l)
printf '\nwork folders left beside the programs and the model: %s\n' "$left"
[ "$left" -eq 0 ]
