# Shared by the scripts beside it: sourced, never run.
# shellcheck shell=bash

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1

# CMake and CTest take their parallelism from here; a caller's own values are kept.
CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-$CMAKE_BUILD_PARALLEL_LEVEL}
export CMAKE_BUILD_PARALLEL_LEVEL CTEST_PARALLEL_LEVEL

program=$(basename "$0")

say()
{
    printf '%s: %s\n' "$program" "$*"
}

die()
{
    say "$*" >&2
    exit 1
}

# step TITLE COMMAND...: announces, runs and times one step; the first that fails ends the script.
# The command runs as an if condition, which switches `set -e` off inside: functions used as steps
# chain with && or return themselves.
step()
{
    local title=$1 start=$SECONDS
    shift
    printf '\n==> %s\n' "$title"
    if "$@"; then
        printf '==> %s: done in %d s\n' "$title" $((SECONDS - start))
    else
        printf '\n'
        die "FAILED at step '$title' after $((SECONDS - start)) s"
    fi
}

# retry COMMAND...: three attempts, for what goes over a network.
retry()
{
    local attempt
    for attempt in 1 2 3; do
        "$@" && return
        [ "$attempt" -lt 3 ] || return 1
        say "'$*' failed, trying again in $((attempt * 5)) s"
        sleep $((attempt * 5))
    done
}

as_root()
{
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        say "need root or sudo to run: $*" >&2
        return 1
    fi
}

# install_packages PACKAGE...: installs those that are missing, and does nothing when none is.
install_packages()
{
    local package missing=()
    if ! command -v dpkg-query >/dev/null; then
        say "not a Debian system; taking for granted what these packages hold: $*"
        return 0
    fi
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null |
            grep -qx installed || missing+=("$package")
    done
    if [ ${#missing[@]} -eq 0 ]; then
        echo "nothing is missing"
        return 0
    fi
    say "installing ${missing[*]}"
    retry as_root apt-get update -q &&
        retry as_root env DEBIAN_FRONTEND=noninteractive \
            apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# What building the library and its examples takes.
# shellcheck disable=SC2034 # the scripts that source this file use it
build_packages=(g++ cmake ninja-build qtbase5-dev zlib1g-dev)

# tracked PATTERN...: the files under version control (or, in an exported tree, all files) that
# match, one a line.
tracked()
{
    if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        # --others: a file that is not added yet is checked too, unless it is ignored.
        git ls-files --cached --others --exclude-standard -- "$@" | while IFS= read -r file; do
            [ ! -e "$file" ] || printf '%s\n' "$file"
        done
    else
        local pattern arguments=(-false)
        for pattern in "$@"; do
            arguments+=(-o -name "$pattern")
        done
        find . \( -path ./build -o -path ./out \) -prune -o \( "${arguments[@]}" \) -print
    fi
}

# build PRESET [CMAKE-BUILD-ARGUMENT...]
build()
{
    local preset=$1
    shift
    cmake --preset "$preset" && cmake --build --preset "$preset" "$@"
}
