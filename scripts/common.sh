# shellcheck shell=bash
# Shared by the scripts; sourced with the project's root as the working directory.

# quietly LOG COMMAND...: keeps the command's output in LOG, and shows it only if the command fails.
quietly() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    if ! "$@" >"$log" 2>&1; then
        cat "$log" >&2
        echo "Failed: $*" >&2
        return 1
    fi
}

# Every source and header of the project.
project_sources() {
    find gxftypes gxfstream tools testing tests fuzz bench examples \
        -type f \( -name '*.cpp' -o -name '*.h' \) | sort
}

# As many compilers as processors, unless the caller has said otherwise.
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
