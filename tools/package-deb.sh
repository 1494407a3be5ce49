#!/usr/bin/env bash
# Makes the Debian package: installs what is missing, configures a build tree for /usr with
# Debian's compiler and linker flags (the hardening that lintian looks for), builds what the
# package installs, and has CPack make the .deb. Prints the package's path.
#   tools/package-deb.sh [BUILD_DIR]      (default build-deb)
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build-deb}

bash tools/setup-deps.sh --package

# CMake reads no CPPFLAGS: the preprocessor's flags (_FORTIFY_SOURCE) go with the compiler's.
export DEB_BUILD_MAINT_OPTIONS=hardening=+all
CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
LDFLAGS="$(dpkg-buildflags --get LDFLAGS)"
export CXXFLAGS LDFLAGS
# Build type None: Debian's flags alone. The install does not build everything first: the
# tests and benchmarks of this tree are not built at all.
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_PREFIX=/usr \
  -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON >/dev/null
cmake --build "$dir" --target varnolt varnolt-cli varnolt-instrument varnolt-mkpkg varnolt_installed_files

rm -f "$dir"/varnolt_*.deb
(cd "$dir" && cpack -G DEB >/dev/null)
ls "$(pwd)/$dir"/varnolt_*.deb
