#!/usr/bin/env bash
# usage: main_job.sh BIN_FOLDER WORK_FOLDER
# The way of a CAD file through everything: STEP in, a model, requests through client, relay and handler, the changed
# model again, and the end of a tree. Shows what is asked, what comes back, and how long it takes.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
bin=$(cd "$1" && pwd)
mkdir -p "$2"
cd "$2"

step() { printf '\n$ %s\n' "$*"; }
timed() { # command argument... : with its time
  local from
  from=$(date +%s%N)
  "$@"
  echo "-- $((($(date +%s%N) - from) / 1000000)) ms"
}
run() { # program argument... : shown, with its time
  step "$@"
  timed "$bin/$1" "${@:2}"
}
folders() { find "$bin" . -maxdepth 1 -name 'ZUR_TMP_FOLDER-*' | sort; }
before=$(folders) # other trees have theirs beside the programs too

run make_bracket bracket.step
run kiv import bracket.step bracket.kiv --force
run kiv tree bracket.kiv
run kiv check bracket.kiv
run dor open bracket.kiv

step "dor shell bracket.kiv < main_job.requests"
timed "$bin/dor" shell bracket.kiv <"$here/examples/main_job.requests"

run dor call moved.kiv GetAsmInfo 2
run kiv check moved.kiv
run kiv check painted.kiv
run kiv export moved.kiv moved.glb --force

step "watch_tree bracket.kiv moved.kiv bracket.kiv"
timed "$here/scripts/end_tree.sh" "$bin" bracket.kiv moved.kiv bracket.kiv

left=$(comm -13 <(echo "$before") <(folders) | wc -l)
printf '\nwork folders left beside the programs and the models: %s\n' "$left"
[ "$left" -eq 0 ]
