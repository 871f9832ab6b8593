#!/usr/bin/env bash
# The sources of the libraries that the Windows build makes itself, from their Debian source packages: unpacked to
# build/sources/<package>. Safe to repeat; needs no rights: the lists of source packages are kept apart from the system's
# and follow its own entries of binary packages.
set -euo pipefail
cd "$(dirname "$0")/.."
packages=(assimp meshoptimizer)
target=$PWD/build/sources
apt=$target/apt

missing=()
for package in "${packages[@]}"; do [ -f "$target/$package/.whole" ] || missing+=("$package"); done
if [ ${#missing[@]} -eq 0 ]; then
  echo "sources: ${packages[*]} are there"
  exit 0
fi

# The machine's own entries, for sources; a trusted key and other options of an entry stay as they are.
mkdir -p "$apt/parts" "$apt/lists/partial" "$apt/cache/archives/partial"
rm -f "$apt"/parts/* "$apt/sources.list"
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [ -f "$file" ] || continue
  sed -nE '/cdrom:/d; s/^[[:space:]]*deb([[:space:]])/deb-src\1/p' "$file" >>"$apt/parts/$(basename "$file" .list).list"
done
for file in /etc/apt/sources.list.d/*.sources; do
  [ -f "$file" ] || continue
  sed -E 's/^Types:.*/Types: deb-src/' "$file" >"$apt/parts/$(basename "$file")"
done
options=(-o "Dir::State::Lists=$apt/lists" -o "Dir::Cache=$apt/cache" -o "Dir::Etc::SourceList=$apt/sources.list"
  -o "Dir::Etc::SourceParts=$apt/parts")
# Root would hand the downloads to a user who cannot write here.
[ "$(id -u)" -ne 0 ] || options+=(-o APT::Sandbox::User=root)
: >"$apt/sources.list"

echo "sources: fetching ${missing[*]}"
apt-get "${options[@]}" update -qq
for package in "${missing[@]}"; do
  rm -rf "${target:?}/$package" "$apt/fetched"
  mkdir -p "$apt/fetched"
  (cd "$apt/fetched" && apt-get "${options[@]}" source --download-only -qq --only-source "$package" &&
    dpkg-source --no-check -x ./*.dsc "$target/$package" >/dev/null)
  touch "$target/$package/.whole"
  rm -rf "$apt/fetched"
  echo "sources: $package $(dpkg-parsechangelog -l "$target/$package/debian/changelog" -S Version)"
done
