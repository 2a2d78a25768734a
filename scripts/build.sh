# shellcheck shell=bash disable=SC2034
# Functions that run, test, .ci/run and other scripts source: they install missing packages,
# configure a preset, and build it. All messages go to standard error, so that the output of a
# program stays clean. Sets `root`, the checkout, and `build`, the only directory in it that is
# written to.

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build

# Checkouts share compiled objects through ccache. It fails without a writable directory, so for a
# user without a home its directory lies in the build directory.
export CCACHE_BASEDIR="$root"
cache=${CCACHE_DIR:-${XDG_CACHE_HOME:-${HOME-}/.cache}/ccache}
if [ -z "${HOME-}" ] || ! mkdir -p -- "$cache" 2>/dev/null || [ ! -w "$cache" ]; then
    export CCACHE_DIR=$build/ccache
fi

# Each entry is a Debian package, and the probe that shows whether it is installed: a command, or an
# absolute file pattern.
build_packages=(
    g++:g++
    cmake:cmake
    ninja-build:ninja
    ccache:ccache
    libcli11-dev:/usr/include/CLI/CLI.hpp
    libfmt-dev:/usr/include/fmt/core.h
    libre2-dev:/usr/include/re2/re2.h
    libncurses-dev:/usr/include/ncurses.h
    pkgconf:pkgconf
    nlohmann-json3-dev:/usr/include/nlohmann/json.hpp
    file:file
    scdoc:scdoc
)
test_packages=(
    libgtest-dev:/usr/include/gtest/gtest.h
    libgmock-dev:/usr/include/gmock/gmock.h
    git:git
    locales:/usr/share/i18n/charmaps/ISO-8859-1.gz
    zsh:zsh
    fish:fish
    man-db:man
    mandoc:mandoc
    python3:python3
    findutils:find
    fd-find:fdfind
    bfs:bfs
    tmux:tmux
    python3-jsonschema:/usr/lib/python3/dist-packages/jsonschema/__init__.py
)
bench_packages=(
    libbenchmark-dev:/usr/include/benchmark/benchmark.h
    python3:python3
    findutils:find
    fd-find:fdfind
    bfs:bfs
    plocate:plocate
)
package_packages=(
    dpkg-dev:dpkg-buildpackage
    debhelper:dh
    fakeroot:fakeroot
)
check_packages=(
    clang:clang++
    clang-format:clang-format
    clang-tidy:run-clang-tidy
    libclang-rt-14-dev:/usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.asan*
    shellcheck:shellcheck
    lintian:lintian
    mmdebstrap:mmdebstrap
    abigail-tools:abidiff
)
reference_packages=(doxygen:doxygen)
# Only .ci/run installs these: ./test skips the tests that need them without them.
browser_packages=(chromium-headless-shell:chromium-headless-shell)
fleet_packages=(
    parallel:parallel
    ansible-core:ansible-playbook
)

say() { printf '%s\n' "$*" >&2; }
die() {
    say "$*"
    exit 1
}

# is_there PROBE: whether the command, or a file of the pattern, exists.
is_there() {
    case $1 in
        /*) compgen -G "$1" >/dev/null ;;
        *) command -v -- "$1" >/dev/null ;;
    esac
}

# run_logged LOG COMMAND...: writes the command's output to LOG, and shows it if the command fails.
run_logged() {
    local log=$1
    shift
    "$@" >"$log" 2>&1 </dev/null && return
    cat -- "$log" >&2
    return 1
}

# run_build LOG COMMAND...: the same for a build. On a terminal, a line shows how far it is.
run_build() {
    local log=$1 line status=0
    shift
    if [ ! -t 2 ]; then
        run_logged "$log" "$@"
        return
    fi
    "$@" 2>&1 </dev/null | tee -- "$log" | while IFS= read -r line; do
        [[ $line != \[*/*\]* ]] || printf '\r\033[K%.79s' "${line%%]*}] ${line##*/}" >&2
    done || status=$?
    printf '\r\033[K' >&2
    [ "$status" -eq 0 ] || cat -- "$log" >&2
    return "$status"
}

# apt_install PACKAGE...: tries with the package lists that exist, then with updated ones.
apt_install() {
    local -a as_root=(env DEBIAN_FRONTEND=noninteractive)
    [ "$(id -u)" -eq 0 ] || as_root=(sudo "${as_root[@]}")
    local -a get=("${as_root[@]}" apt-get -q -y -o DPkg::Lock::Timeout=120)
    "${get[@]}" install --no-install-recommends "$@" && return
    "${get[@]}" update && "${get[@]}" install --no-install-recommends "$@"
}

# install_missing PACKAGE:PROBE...: installs the packages whose probe fails.
install_missing() {
    local entry
    local -a missing=()
    for entry in "$@"; do
        is_there "${entry#*:}" || missing+=("${entry%%:*}")
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    local by_hand="missing: ${missing[*]}; install with: apt-get install --no-install-recommends ${missing[*]}"
    command -v apt-get >/dev/null || die "$by_hand (on Debian; elsewhere their equivalents)"
    [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null || die "$by_hand (as root)"
    say "installing ${missing[*]}"
    run_logged "$build/install.log" apt_install "${missing[@]}" || die "$by_hand"
}

# prepare GROUP...: makes the build directory and installs the packages of these groups. A group is
# the beginning of the name of a list above, such as "build".
prepare() {
    local group
    mkdir -p -- "$build" 2>/dev/null || true
    [ -w "$build" ] ||
        die "cannot write to $build: build in a checkout of your own, or remove that directory"
    for group in "$@"; do
        local -n packages=${group}_packages
        install_missing "${packages[@]}"
    done
}

# configure PRESET: configures the preset's build tree, unless it was configured in this checkout with
# the same presets.
configure() {
    local tree=$build/$1 key
    key="$root $(cksum <"$root/CMakePresets.json")"
    if [ -f "$tree/build.ninja" ] && [ "$(cat -- "$tree/.configured" 2>/dev/null)" = "$key" ]; then
        return
    fi
    say "configuring and building $1: the first time takes minutes"
    (cd -- "$root" && run_logged "$build/$1-configure.log" cmake --fresh --preset "$1") ||
        die "configuring $1 failed"
    printf '%s\n' "$key" >"$tree/.configured"
}

# build_preset PRESET [TARGET...]: configures if needed, and builds with all cores. Only one build
# runs at a time; a second caller waits for the first.
build_preset() {
    local preset=$1 lock
    shift
    exec {lock}>"$build/.lock" || die "cannot write to $build"
    flock "$lock"
    configure "$preset"
    run_build "$build/$preset-build.log" ninja -C "$build/$preset" -j "$(nproc)" "$@" ||
        die "building $preset failed"
    exec {lock}>&-
}
