# shellcheck shell=bash
# Functions that the scripts share: progress messages, installation of missing packages, building. Sourced, not run.

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
readonly project_root

# A need is a command or a file, and the Debian package that contains it.
# shellcheck disable=SC2034 # read by the scripts that source this file
readonly build_needs=(c++:g++ cmake:cmake ninja:ninja-build)
# shellcheck disable=SC2034
readonly test_needs=(/usr/include/gtest/gtest.h:libgtest-dev python3:python3)
# shellcheck disable=SC2034
readonly cross_needs=(cmake:cmake ninja:ninja-build /usr/src/googletest:googletest python3:python3
    qemu-s390x:qemu-user)
# The cross compiler of each architecture, as a need.
# shellcheck disable=SC2034
readonly -A compilers=([i386]=i686-linux-gnu-g++:g++-i686-linux-gnu
    [armhf]=arm-linux-gnueabihf-g++:g++-arm-linux-gnueabihf [arm64]=aarch64-linux-gnu-g++:g++-aarch64-linux-gnu
    [riscv64]=riscv64-linux-gnu-g++:g++-riscv64-linux-gnu [s390x]=s390x-linux-gnu-g++:g++-s390x-linux-gnu)
# shellcheck disable=SC2034
readonly -A emulators=([i386]=qemu-i386 [armhf]=qemu-arm [arm64]=qemu-aarch64)
# shellcheck disable=SC2034
readonly package_needs=("${build_needs[@]}" /usr/share/build-essential:build-essential dh:debhelper
    dpkg-buildpackage:dpkg-dev lintian:lintian)
# shellcheck disable=SC2034
readonly clang_needs=(clang++-14:clang-14 /usr/lib/llvm-14/include/c++:libc++-14-dev
    /usr/lib/llvm-14/lib/libc++abi.so:libc++abi-14-dev /usr/src/googletest:googletest)
# shellcheck disable=SC2034
readonly check_needs=("${clang_needs[@]}" clang-format-14:clang-format-14 clang-tidy-14:clang-tidy-14
    run-clang-tidy-14:clang-tidy-14 cppcheck:cppcheck shellcheck:shellcheck mandoc:mandoc
    pyflakes3:pyflakes3 mypy:mypy)

# Most tests wait more than they compute.
# shellcheck disable=SC2034
test_jobs=$((4 * $(nproc)))

say() {
    printf '==> %s\n' "$*"
}

# die STATUS TEXT: ends the script.
die() {
    printf '%s: %s\n' "$(basename "$0")" "$2" >&2
    exit "$1"
}

is_present() {
    if [[ $1 == /* ]]; then
        [[ -e $1 ]]
    else
        command -v "$1" >/dev/null
    fi
}

as_root() {
    if [[ $EUID -eq 0 ]]; then
        "$@"
    else
        sudo -- "$@"
    fi
}

# install_packages PACKAGE...: writes the output of apt to out/apt.log and shows it if apt fails.
install_packages() {
    local log=$project_root/out/apt.log
    mkdir -p "${log%/*}"
    {
        as_root apt-get update -qq &&
            as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "$@"
    } >"$log" 2>&1 || {
        cat "$log" >&2
        die 1 "could not install $*"
    }
}

# ensure NEED...: installs the packages of missing needs; changes nothing if none is missing.
ensure() {
    local need
    local -A missing=()
    for need in "$@"; do
        is_present "${need%:*}" || missing[${need#*:}]=1
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0

    local packages
    mapfile -t packages < <(printf '%s\n' "${!missing[@]}" | sort)
    command -v apt-get >/dev/null || die 1 "please install the contents of these Debian packages: ${packages[*]}"
    [[ $EUID -eq 0 ]] || command -v sudo >/dev/null ||
        die 1 "please install as root: apt-get install ${packages[*]}"
    say "Installing ${packages[*]}"
    install_packages "${packages[@]}"
    for need in "$@"; do
        is_present "${need%:*}" || die 1 "${need%:*} is still missing after installing ${need#*:}"
    done
}

# build PRESET [TARGET...]: builds into out/PRESET; all targets by default.
build() {
    local preset=$1
    shift
    say "Building the preset $preset into out/$preset"
    (
        cd "$project_root" &&
            cmake --preset "$preset" >/dev/null &&
            cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
    )
}
