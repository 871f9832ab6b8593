#!/usr/bin/env bash
# usage: main_job.sh BIN_FOLDER WORK_FOLDER
# The way of a CAD file through everything: STEP in, a model, requests through client, relay and handler, the changed
# model again, and the end of a tree. Shows what is asked, what comes back, and how long it takes. Fails if the answers
# to the requests are not those of the bracket, examples/main_job.answers, or if the README shows others.
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
known_answers() { # file : those in it that are known beforehand
  sed -n '/^> # From the top/,$p' "$1" |
    grep -oE '^  (distance|instances|steps_done|undo_steps|name|matrix): .*|^painted\.kiv: .* faces'
}
before=$(folders) # other trees have theirs beside the programs too

run make_bracket bracket.step
run kiv import bracket.step bracket.kiv --force
run kiv tree bracket.kiv
run kiv check bracket.kiv
run dor open bracket.kiv

step "dor shell bracket.kiv < main_job.requests"
timed "$bin/dor" shell bracket.kiv <"$here/examples/main_job.requests" | tee answers.txt

run dor call moved.kiv GetAsmInfo 2 | tee -a answers.txt
run kiv check moved.kiv
run kiv check painted.kiv | tee -a answers.txt
run kiv export moved.kiv moved.glb --force

for text in answers.txt "$here/README.md"; do
  diff "$here/examples/main_job.answers" <(known_answers "$text") >differences ||
    { printf '%s: not the answers of examples/main_job.answers\n' "$text"; cat differences; exit 1; }
done
printf '\nthe answers are those of examples/main_job.answers\n'

step "watch_tree bracket.kiv moved.kiv bracket.kiv"
timed "$here/scripts/end_tree.sh" "$bin" bracket.kiv moved.kiv bracket.kiv

left=$(comm -13 <(echo "$before") <(folders) | wc -l)
printf '\nwork folders left beside the programs and the models: %s\n' "$left"
[ "$left" -eq 0 ]
