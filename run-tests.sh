#!/bin/sh
# Builds ferret and runs its tests, on Debian 12 or 13, from nothing.
#
#   ./run-tests.sh                 the release build with its unit, command-line and interop tests, in a short form
#   ./run-tests.sh all             what CI runs: every leg; the release tests come last, and their summary tells about all legs
#   ./run-tests.sh release asan    only these legs, out of: release asan tsan clang fuzz install faults-long
#   ./run-tests.sh --no-install    do not look for missing packages
#
# Legs: "release" runs every test of the optimised build in its long form, the fault tests, and the benchmarks in a short form;
# "asan" (address and undefined behaviour) and "tsan" (threads) run the tests under sanitizers, with the test peers of the
# release build; "clang" compiles library and tool with the thread-safety analysis, each file by itself; "fuzz" runs each fuzz
# target for a short time; "install" builds the Debian package and the static binary and tries them in bare trees of Debian 12
# and 13, where debootstrap is installed. The exit status is 0 only if everything passed. "faults-long" is no leg of CI: the
# fault tests with all rows, wider windows and larger storms.
set -u
cd "$(dirname "$0")" || exit 1

PACKAGES="cmake ninja-build g++ clang libclang-rt-dev libgtest-dev libgmock-dev libpugixml-dev rapidjson-dev pkg-config python3 python3-lark
    iproute2 util-linux ccache cyclonedds-tools cyclonedds-dev mandoc"
# Fast DDS is a second peer, 2.x in Debian 12 and 3.x in 13; clang-format 14 is the one that .clang-format was made for, and
# where it is not to be had the tests do without it.
if grep -qs 'VERSION_ID="12"' /etc/os-release; then
    PACKAGES="$PACKAGES libfastrtps-dev clang-format-14"
else
    PACKAGES="$PACKAGES libfastdds-dev"
fi

legs=
install=yes
for argument in "$@"; do
    case "$argument" in
        --no-install) install=no ;;
        all) legs="$legs release asan tsan clang fuzz install" ;;
        release | asan | tsan | clang | fuzz | install | faults-long) legs="$legs $argument" ;;
        *)
            sed -n 's/^# \{0,1\}//; 2,7p' "$0"
            exit 2
            ;;
    esac
done
legs=${legs:-short}

jobs=$(nproc)
# The package and the static binary are compiled as the release build is: the compiler's cache then knows them in other folders.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$PWD}"
# Not status 1, which is the tool's success, nor 0.
export ASAN_OPTIONS="exitcode=99:detect_leaks=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="exitcode=99:print_stacktrace=1:${UBSAN_OPTIONS:-}"
export TSAN_OPTIONS="exitcode=99:halt_on_error=1:${TSAN_OPTIONS:-}"

wanted() {
    case " $legs " in *" $1 "*) return 0 ;; *) return 1 ;; esac
}

say() {
    printf '\n=== %s\n' "$*"
}

configure() { # PRESET OPTIONS...
    preset=$1
    shift
    if command -v ccache > /dev/null; then
        set -- -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@"
    fi
    cmake --preset "$preset" "$@" > "build/configure-$preset.log" 2>&1 || {
        cat "build/configure-$preset.log"
        return 1
    }
    grep -E '^-- .*(skipped|only with)' "build/configure-$preset.log"
    return 0
}

build() { # PRESET OPTIONS...
    preset=$1
    shift
    cmake --build --preset "$preset" -j "$jobs" "$@"
}

run_ctest() { # PRESET OPTIONS...
    preset=$1
    shift
    # Four at once where they mostly wait; a test that computes counts for two.
    ctest --test-dir "build/$preset" --no-tests=error --output-on-failure -j 4 "$@"
}

# Little optimisation: half the time to compile, and what sanitizers see is closer to the source. What they add makes compilers
# warn of what is not; the builds without them take warnings as errors.
configure_sanitizer() { # PRESET OPTIONS...
    configure "$@" -DWERROR=OFF -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1"
}

sanitizer_leg() { # PRESET LABELS_NOT_TO_RUN
    configure_sanitizer "$1" -DFERRET_PEERS_DIR="$PWD/build/release/tests/interop/peers" &&
        build "$1" && run_ctest "$1" -LE "$2"
}

clang_leg() {
    configure clang -DBUILD_TESTING=OFF -DFERRET_PEERS=OFF && build clang --target ferret
}

fuzz_leg() {
    configure_sanitizer fuzz && build fuzz --target fuzzers && run_ctest fuzz -L fuzz
}

faults_long_leg() {
    run_ctest release -C Long -L faults-long
}

install_leg() {
    flag=--no-install
    [ "$install" = yes ] && flag=
    packaging/make-deb.sh $flag && configure static && build static || return 1
    for suite in bookworm trixie; do
        tests/packaging/bare_tree.sh $suite build/package/*.deb build/static/ferret build/bare
        case $? in 0 | 77) ;; *) return 1 ;; esac
    done
}

if [ "$install" = yes ]; then
    cmake/install-packages.sh $PACKAGES || exit 1
fi
mkdir -p build/legs
failed=0

# The release build comes first, since the sanitizer legs use its test peers; its tests come last, for the summary.
reported=
for leg in asan tsan clang fuzz install faults-long; do
    if wanted $leg; then
        reported="$reported;$leg"
        echo "not run" > build/legs/$leg
    fi
done
benchmarks=OFF
wanted release && benchmarks=ON
say "release: build"
if ! configure release -DFERRET_BENCH=$benchmarks -DFERRET_LEGS="${reported#;}" || ! build release; then
    exit 1
fi

for leg in asan tsan clang fuzz install faults-long; do
    wanted $leg || continue
    say "$leg"
    case $leg in
        asan) sanitizer_leg asan walls ;;
        tsan) sanitizer_leg tsan 'walls|single-thread' ;;
        clang) clang_leg ;;
        fuzz) fuzz_leg ;;
        install) install_leg ;;
        faults-long) faults_long_leg ;;
    esac
    if [ $? -eq 0 ]; then
        echo passed > build/legs/$leg
    else
        echo failed > build/legs/$leg
        say "$leg FAILED"
        failed=1
    fi
done

if wanted short; then
    say "release: tests, short form"
    export INTEROP_SHORT=1
    run_ctest release -LE faults || failed=1
elif wanted release; then
    say "release: tests"
    run_ctest release || failed=1
elif [ -n "$reported" ]; then
    run_ctest release -R '^leg_' || failed=1
fi
exit $failed
