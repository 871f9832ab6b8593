#!/usr/bin/env bash
# usage: end_tree.sh BIN_FOLDER MODEL...
# Opens the models at once, kills one of the handlers, and shows how the whole tree ends.
set -euo pipefail
bin="$1"
shift
coproc TREE { exec "$bin/watch_tree" "$@"; }
pid=$TREE_PID
exec {from}<&"${TREE[0]}"
while IFS= read -r line <&"$from"; do
  echo "$line"
  case "$line" in
    handler*)
      read -r _ first _ <<<"$line"
      sleep 0.2
      echo "\$ kill -KILL $first"
      kill -KILL "$first"
      ;;
  esac
done
code=0
wait "$pid" || code=$?
echo "exit code of the client: $code"
[ "$code" -eq 4 ]
