# Shared by the scripts in scripts/: project paths and package set-up.

PASSWAY_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
PASSWAY_JOBS=$(nproc 2>/dev/null || echo 2)

# The Debian packages a build and its tests need; the real-browser run needs the second set.
PASSWAY_PACKAGES=(cmake make g++ pkg-config libssl-dev libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev nodejs)
PASSWAY_BROWSER_PACKAGES=(xvfb xauth python3 python3-pyqt5.qtwebkit chromium firefox-esr)
# The Debian package's check (scripts/check-deb): dpkg-shlibdeps for its dependencies, lintian.
PASSWAY_PACKAGING_PACKAGES=(dpkg-dev lintian)

# ensure_packages PKG...: installs with apt-get whichever of the packages are missing.
ensure_packages() {
    local missing=()
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "== installing: ${missing[*]}"
    local sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    "${sudo[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# The npm tools the checks use, pinned; installed into build-tools/ (not in git), where CMake finds them.
PASSWAY_NPM_TOOLS=(addons-linter@10.14.0)
ensure_npm_tools() {
    command -v npm >/dev/null || ensure_packages npm
    local dir="$PASSWAY_ROOT/build-tools" have
    have=$(cd "$dir" 2>/dev/null && npm ls --depth=0 --parseable --long 2>/dev/null | sed -n 's/.*:\([^:]*@[^:@]\{1,\}\)$/\1/p' | sort | tr '\n' ' ') || have=''  # no folder yet
    [ "$have" = "$(printf '%s\n' "${PASSWAY_NPM_TOOLS[@]}" | sort | tr '\n' ' ')" ] && return 0
    echo "== installing from npm: ${PASSWAY_NPM_TOOLS[*]}"
    mkdir -p "$dir"
    npm install --prefix "$dir" --no-audit --no-fund --silent "${PASSWAY_NPM_TOOLS[@]}"
}

# configure_and_build DIR [CMAKE ARGS...]: configures the project into DIR and builds it.
configure_and_build() {
    local dir=$1
    shift
    cmake -S "$PASSWAY_ROOT" -B "$dir" "$@"
    cmake --build "$dir" -j "$PASSWAY_JOBS"
}
