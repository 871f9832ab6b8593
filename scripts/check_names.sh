#!/usr/bin/env bash
# Fails when a name in kiv/ goes against the naming rules of .clang-tidy, the prefix of members above all. One pass over
# all headers together and one over each source that defines a class: the others have no members to name. The sources
# of the Windows backend need headers of that system; of them the members are looked at without a compiler.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

includes=(-Ikiv/kivplatform/include -Ikiv/kivplatform/posix -Ikiv/kivbasedata/include -Ikiv/kivbasedata/src
  -isystem /usr/include/utf8cpp -isystem /usr/include/opencascade -isystem /usr/include/eigen3)
for folder in kiv/Dor* kiv/kivtool kiv/kivscene kiv/kivreaders/*; do [ -d "$folder" ] && includes+=("-I$folder"); done

tidy() { # file... : what it finds, one at a time on each core
  printf '%s\0' "$@" | xargs -0 -P "$(nproc)" -I{} clang-tidy --quiet --config-file=.clang-tidy \
    --checks='-*,readability-identifier-naming' --warnings-as-errors='*' --header-filter='/kiv/' {} \
    -- -std=c++20 -DKIV_DNS_DOMAIN='""' -DKIV_TOOL_VERSION='""' "${includes[@]}" 2>"$work/errors"
}

members_without_prefix() { # file... : "  Type name;" at the first level of a class
  awk '/^(struct|class) [^;]*$/ { inside = 1 } /^};/ { inside = 0 }
    inside && !/^  (static|using|friend|enum|return|typedef) / &&
      /^  [A-Za-z_][A-Za-z_0-9:<>*, ]*[ *&>][a-z][A-Za-z0-9_]*( = [^;]*|\{[^;]*\})?;/ {
      line = $0; sub(/( = |\{).*/, ";", line); sub(/ *;.*/, "", line); sub(/.*[ *&>]/, "", line)
      if (line !~ /^m_/) print FILENAME ":" FNR ": member without its prefix:" $0 }' "$@"
}

# A check that finds nothing where there is something would pass for ever.
printf 'struct Planted {\n  int iWithout = 0;\n};\n' >"$work/planted.cpp"
tidy "$work/planted.cpp" >"$work/found" && { echo "check_names: clang-tidy does not see a planted name"; exit 2; }
grep -q "iWithout" "$work/found" || { cat "$work/found" "$work/errors"; echo "check_names: clang-tidy does not work"; exit 2; }
members_without_prefix "$work/planted.cpp" | grep -q iWithout ||
  { echo "check_names: the look without a compiler does not see a planted name"; exit 2; }

find kiv -name '*.h' ! -path '*/windows/*' | sort | sed "s|.*|#include \"$PWD/&\"|" >"$work/headers.cpp"
mapfile -t sources < <(find kiv -name '*.cpp' ! -path '*/windows/*' -print0 | sort -z |
  xargs -0 grep -lE '^[[:space:]]*(struct|class)[[:space:]]' || true)
mapfile -t windows < <(find kiv -path '*/windows/*' -name '*.*' | sort)
if [ ! -s "$work/headers.cpp" ] || [ ${#sources[@]} -eq 0 ] || [ ${#windows[@]} -eq 0 ]; then
  echo "check_names: no files found"
  exit 2
fi

failed=0
tidy "$work/headers.cpp" "${sources[@]}" >"$work/findings" || failed=1
members_without_prefix "${windows[@]}" >"$work/windows"
[ ! -s "$work/windows" ] || failed=1
if [ $failed -ne 0 ]; then
  grep -hE 'error:|warning:|prefix:' "$work/findings" "$work/windows" | sort -u || cat "$work/errors"
  echo "check_names: findings above"
  exit 1
fi
echo "check_names: $(wc -l <"$work/headers.cpp") headers and ${#sources[@]} sources as .clang-tidy says, ${#windows[@]} by their members"
