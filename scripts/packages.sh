# Installs the Debian packages that a task needs. Sourced by run.sh and test.sh:
#   need_packages NAME...   installs those that are missing (as root, or by sudo), or says what is missing and fails

say() { printf '\n== %s\n' "$*"; }

need_packages() {
  local missing=() name
  for name in "$@"; do
    dpkg-query -W -f='${db:Status-Abbrev}' "$name" 2>/dev/null | grep -q '^ii' || missing+=("$name")
  done
  if [ ${#missing[@]} -eq 0 ]; then
    echo "packages: all $# are installed"
    return 0
  fi
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null 2>&1; then
      as_root=(sudo)
    else
      echo "These packages are missing, and neither root nor sudo is at hand. Install them and call again:" >&2
      echo "  apt-get install ${missing[*]}" >&2
      return 1
    fi
  fi
  echo "packages: installing ${missing[*]}"
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
    >"$KIV_LOG_DIR/packages.log" 2>&1 || { tail -n 20 "$KIV_LOG_DIR/packages.log" >&2; return 1; }
}

KIV_BUILD_PACKAGES=(g++ cmake ninja-build ccache python3 git zlib1g-dev libcurl4-openssl-dev libdw-dev
  libutfcpp-dev libcli11-dev nlohmann-json3-dev libeigen3-dev libassimp-dev libmeshoptimizer-dev)
# Open CASCADE for the reader of STEP files (Linux only; without it the build leaves the reader out): some 110 packages,
# 90 MB to fetch and 400 MB on the disk.
KIV_STEP_PACKAGES=(libocct-data-exchange-dev)
# Foreign files of all kinds for the tests of imports.
KIV_TEST_PACKAGES=(googletest locales assimp-testmodels occt-misc)
# The last ones unpack the sources of scripts/windows_sources.sh.
KIV_WINDOWS_PACKAGES=(g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine wine64 dpkg-dev xz-utils patch)
# The glTF validator comes by npm, unless there is one already.
KIV_GLTF_PACKAGES=(nodejs npm)
KIV_CHECK_PACKAGES=(clang-format clang-tidy)
# Peers of the benchmarks (the preset linux-bench).
KIV_BENCHMARK_PACKAGES=(libsqlite3-dev liblmdb-dev libleveldb-dev libzmq3-dev cppzmq-dev libmeshoptimizer-dev libdraco-dev
  libfcl-dev)
