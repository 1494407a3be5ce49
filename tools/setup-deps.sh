#!/usr/bin/env bash
# Installs the Debian packages that Varnolt needs to build, run and test.
# Does nothing when everything is already there; uses sudo only when not root.
#
#   tools/setup-deps.sh            what building and running need
#   tools/setup-deps.sh --package  also what making the Debian package needs
#   tools/setup-deps.sh --test     also what the test suite needs (the package's tests among it)
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  qt6-base-dev qt6-serialport-dev qt6-svg-dev qt6-qpa-plugins
  libzip-dev zlib1g-dev
  # The man pages' sources become roff, the icon's SVG becomes the bitmaps menus want.
  scdoc librsvg2-bin
)
# CPack's DEB generator finds the programs' libraries with dpkg-shlibdeps (dpkg-dev), and tells
# programs from other files with file.
package=(dpkg-dev file)
case "${1:-}" in
  --package) packages+=("${package[@]}") ;;
  --test)
    packages+=("${package[@]}")
    # clang and its runtime build the fuzz target; the sanitizer runtimes of g++ ship with it.
    packages+=(clang libclang-rt-dev)
    # The package's checks: Debian's policy, the AppStream metadata, the desktop entry.
    packages+=(lintian appstream desktop-file-utils)
    ;;
esac

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing: ${missing[*]}"
as_root=()
[[ $(id -u) -ne 0 ]] && as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
