# shellcheck shell=bash
# What the scripts share. Source it: the script then runs in the repository's root and ends at the first failure.

set -eEuo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# say WORD...: tells what comes next.
say() {
    printf '\n== %s\n' "$*"
}

# fail WORD...: tells why the script ends, and ends it.
fail() {
    printf '\n%s: %s\n' "$0" "$*" >&2
    exit 1
}
trap 'fail "line $LINENO failed: $BASH_COMMAND"' ERR

# packages_for JOB: the Debian packages that a job needs beyond a bare system.
packages_for() {
    case $1 in
        build) echo cmake g++ libcli11-dev ninja-build nlohmann-json3-dev ;;
        test) echo btrfs-progs e2fsprogs fuse2fs groff-base libgmock-dev libgtest-dev mandoc ;;
        benchmark)
            echo libapr1-dev libbenchmark-dev libboost-dev libboost-filesystem-dev libglib2.0-dev libpoco-dev pkg-config \
                python3-matplotlib qtbase5-dev valgrind
            ;;
        manual) echo doxygen mawk ;;
        check) echo binutils clang-format clang-tidy diffutils git pkg-config shellcheck ;;
        clang) echo clang libclang-rt-dev ;;
        interface) echo abigail-tools binutils ;;
        package) echo binutils dpkg-dev file git gzip lintian ;;
        clean-root) echo debootstrap gzip util-linux ;;
        distributed) echo attr glusterfs-client glusterfs-server iproute2 util-linux ;;
        coverage) echo gcovr ;;
        breaks) echo binutils git python3 ;;
        valgrind) echo libc6-dbg valgrind ;;
        *) fail "no packages are known for '$1'" ;;
    esac
}

# need_packages JOB...: installs what these jobs need and what is missing. Elsewhere than on Debian all must be there already.
need_packages() {
    local job package
    local -a missing=()
    command -v dpkg-query >/dev/null || return 0
    for job in "$@"; do
        for package in $(packages_for "$job"); do
            dpkg-query --show --showformat='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
                missing+=("$package")
        done
    done
    ((${#missing[@]})) || return 0

    if ((EUID != 0)); then
        fail "packages are missing; install them with: sudo apt-get install ${missing[*]}"
    fi
    say "Installing the packages that are missing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get -qq update </dev/null || fail "apt-get could not update its lists of packages"
    apt-get -qq install --no-install-recommends "${missing[@]}" </dev/null >/dev/null ||
        fail "apt-get could not install: ${missing[*]}"
}

# processors: how many there are.
processors() {
    getconf _NPROCESSORS_ONLN
}

# build_preset PRESET [TARGET...]: builds in build/PRESET, everything where no target is named.
build_preset() {
    local preset=$1
    shift
    say "Building the preset '$preset' in build/$preset"
    if command -v ccache >/dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER=ccache
    fi
    cmake --preset "$preset" >/dev/null || fail "the preset '$preset' could not be configured"
    cmake --build --preset "$preset" ${1:+--target "$@"} || fail "the preset '$preset' could not be built"
}

# test_preset PRESET: runs all tests of a preset that was built. The output ends with the summary of ctest.
test_preset() {
    say "Running the tests of the preset '$1'"
    ctest --preset "$1" --parallel "$(processors)" || fail "tests of the preset '$1' failed"
}

# run_suite SECONDS WRAPPER PROGRAM FILTER: runs the tests that the filter names as one process, the words of WRAPPER in front of
# it; what it says is shown where one fails, or where it takes longer than SECONDS. (ctest runs every test as a process of its own, so
# that none can rely on another one. That is dear where a process is.)
run_suite() {
    local log status=0
    local -a words
    read -ra words <<<"$2"
    log=$(mktemp)
    timeout --kill-after 5 "$1" "${words[@]}" "$3" "--gtest_filter=$4" </dev/null >"$log" 2>&1 || status=$?
    if ((status)); then
        grep -v '^\[ \+\(OK\|RUN\) ' "$log" | head -n 300
        echo "FAILED with exit status $status: $3 '--gtest_filter=$4'"
    fi
    rm -f "$log"
    return "$status"
}
