#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests. Safe to repeat.
#
#   ./test.sh                       everything
#   ./test.sh native windows        only these stages: checks native asan tsan windows
set -euo pipefail
cd "$(dirname "$0")"
export KIV_LOG_DIR="$PWD/build/logs"
export UBSAN_OPTIONS=print_stacktrace=1
mkdir -p "$KIV_LOG_DIR"
source scripts/packages.sh

stages=("$@")
[ ${#stages[@]} -gt 0 ] || stages=(checks native asan tsan windows)
jobs=$(nproc)
failed=()
started=$SECONDS

wants() { local stage; for stage in "${stages[@]}"; do [ "$stage" = "$1" ] && return 0; done; return 1; }

for stage in "${stages[@]}"; do
  case "$stage" in checks | native | asan | tsan | windows) ;; *) echo "test.sh: no stage '$stage'" >&2; exit 2 ;; esac
done

# Builds a preset, or only some targets of it, with its progress line, and keeps the log.
build() { # preset [target...]
  local preset=$1
  shift
  cmake --preset "$preset" -DKIV_PCH=ON >"$KIV_LOG_DIR/configure-$preset.log" 2>&1 || { tail -n 30 "$KIV_LOG_DIR/configure-$preset.log"; return 1; }
  cmake --build --preset "$preset" -j "$jobs" ${1:+--target "$@"}
}

run_tests() { # preset [option...]
  local preset=$1
  shift
  # One more than there are cores: tests of several processes wait for each other most of their time.
  ctest --preset "$preset" -j "$((jobs + 1))" --no-tests=error --output-on-failure --progress "$@"
}

stage() { # name command...
  local name=$1 from=$SECONDS
  shift
  say "$name"
  if "$@"; then echo "-- $name: good after $((SECONDS - from)) s"; else
    echo "-- $name: FAILED after $((SECONDS - from)) s"
    failed+=("$name")
  fi
}

checks() {
  python3 cmake/check_layers.py . || return 1
  python3 cmake/check_layers_test.py || return 1
  scripts/check_names.sh || return 1
  git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror || return 1
  echo "format: $(git ls-files '*.h' '*.cpp' | wc -l) files as .clang-format says"
}

# The tests hold exported files against it. Without it they would pass over that, so its absence fails the stage.
gltf_validator() {
  mkdir -p build/npm && cp tests/support/gltf/package.json tests/support/gltf/package-lock.json build/npm/ || return 1
  npm ci --prefix build/npm --no-audit --no-fund >"$KIV_LOG_DIR/npm.log" 2>&1 || { tail -n 20 "$KIV_LOG_DIR/npm.log"; return 1; }
}

native() {
  local code=0
  gltf_validator || { echo "the glTF validator could not be installed: exported files are not held against it"; code=1; }
  build linux && run_tests linux && return $code
}
asan() { build linux-asan && run_tests linux-asan; }
# Only what has a thread of its own inside: a build of everything would take as long as the tests of the other stages.
tsan() { build linux-tsan kivthread_tests && run_tests linux-tsan -R '^Threads[.]'; }

# A server that stays holds this script's output open, and whoever reads it waits for ever: it ends on every way out.
wine_server=
end_wine_server() { [ -z "$wine_server" ] || "$wine_server" -k || true; wine_server=; }
trap end_wine_server EXIT
trap 'exit 130' INT TERM HUP

windows() {
  scripts/windows_sources.sh >"$KIV_LOG_DIR/windows-sources.log" 2>&1 || { cat "$KIV_LOG_DIR/windows-sources.log"; return 1; }
  tail -n 3 "$KIV_LOG_DIR/windows-sources.log"
  build windows || return 1
  export WINEPREFIX="$PWD/build/wine" WINEARCH=win64 WINEDEBUG=-all
  export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
  unset DISPLAY http_proxy https_proxy HTTP_PROXY HTTPS_PROXY
  wine_server=$(command -v wineserver || ls /usr/lib/wine/wineserver64 /usr/lib/wine/wineserver 2>/dev/null | head -n 1)
  [ -n "$wine_server" ] || { echo "wineserver is not there"; return 1; }
  # One server for all tests: a fresh one for each would cost over a second.
  scripts/wine-run wineboot -i </dev/null >"$KIV_LOG_DIR/wineboot.log" 2>&1 || { cat "$KIV_LOG_DIR/wineboot.log"; end_wine_server; return 1; }
  "$wine_server" -p </dev/null
  local code=0
  export KIV_WINE_SECOND_LOG="$KIV_LOG_DIR/wine-second.log"
  : >"$KIV_WINE_SECOND_LOG"
  # Programs that tests start meet the same, and a run starts thousands: a test gets up to three runs, what failed is shown
  # with its reason, and the stage fails when it is more than one run in fifty. No other stage repeats a test.
  local log="$KIV_LOG_DIR/windows-tests.log"
  KIV_WINE_HOLD_OUTPUT=1 run_tests windows --repeat until-pass:3 --output-log "$log" || code=$?
  local again tests
  again=$(grep -acE '\*\*\*(Failed|Timeout|Exception)' "$log" || true)
  tests=$(grep -acE '  Passed  ' "$log" || true)
  echo "runs of tests that failed under Wine: $again of $((again + tests))"
  grep -aE -A 8 '\*\*\*(Failed|Timeout|Exception)|: Failure$' "$log" | cut -c1-200 | head -n 150 || true
  [ $((again * 50)) -le "$tests" ] || code=1
  # A program that now and then crashes before its first line looks like that too.
  local second
  second=$(wc -l <"$KIV_WINE_SECOND_LOG")
  echo "programs that Wine ended before their first line, and that got a second start: $second"
  [ "$second" -le 12 ] || { cat "$KIV_WINE_SECOND_LOG"; code=1; }
  end_wine_server
  return $code
}

say "packages"
packages=("${KIV_BUILD_PACKAGES[@]}" "${KIV_TEST_PACKAGES[@]}")
if wants checks || wants native || wants asan; then packages+=("${KIV_STEP_PACKAGES[@]}"); fi
wants checks && packages+=("${KIV_CHECK_PACKAGES[@]}")
wants windows && packages+=("${KIV_WINDOWS_PACKAGES[@]}")
wants native && ! command -v npm >/dev/null 2>&1 && packages+=("${KIV_GLTF_PACKAGES[@]}")
need_packages "${packages[@]}"

for name in "${stages[@]}"; do stage "$name" "$name"; done

say "result after $((SECONDS - started)) s"
if [ ${#failed[@]} -gt 0 ]; then
  echo "failed: ${failed[*]}"
  exit 1
fi
echo "all stages good: ${stages[*]}"
