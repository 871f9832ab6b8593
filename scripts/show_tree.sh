#!/usr/bin/env bash
# usage: show_tree.sh BIN_FOLDER [MODEL]
# Starts client, relay and handler on a model, asks, closes, and shows what happened and that nothing is left.
set -euo pipefail
bin="$1"
model="${2:-}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ -z "$model" ]; then
  # The head of a model without records: 264 bytes, generation 0x14 at offset 8, mark 0xB0 at offset 16.
  model="$work/empty.kiv"
  head -c 264 /dev/zero >"$model"
  printf '\x14\x14\x14\x14\x14\x14\x14\x14\xb0\xb0\xb0\xb0\xb0\xb0\xb0\xb0' | dd of="$model" bs=1 seek=8 conv=notrunc status=none
fi

step() { printf '\n$ dor %s\n' "$*"; "$bin/dor" "$@"; }
step open "$model"
step call "$model" DoNothing
step call "$model" GetAsmTreeInfo --json
step call "$model" IsPlanarFace 3 7 || echo "(exit code $?: the handler does not offer this)"
step open "$work/missing.kiv" || echo "(exit code $?: no such model)"
step bench "$model" --requests 2000

left=$(find "$bin" -maxdepth 1 -name 'ZUR_TMP_FOLDER-*' | wc -l)
printf '\nwork folders left beside the programs: %s\n' "$left"
[ "$left" -eq 0 ]
