#!/usr/bin/env bash
# Runs one fuzz target: replays the corpus of the repository and the inputs that earlier runs added
# in the build folder, then fuzzes.
#
#   fuzz/run.sh BUILD TARGET SECONDS [LIBFUZZER-OPTION]...
#
# BUILD is the folder of the programs. An input that makes the target fail (a crash, a leak, a
# failed assertion, more than 20 seconds, too much memory) is kept there as TARGET-*.
set -euo pipefail
build=$1 target=$2 seconds=$3
shift 3
sources=$(cd "$(dirname "$0")" && pwd)

mkdir -p "$build/corpus/$target"
options=(-timeout=20 -malloc_limit_mb=256 -rss_limit_mb=2048
    "-max_total_time=$seconds" "-artifact_prefix=$build/$target-")
dictionary=$sources/dictionaries/$target
[[ ! -e $dictionary ]] || options+=("-dict=$dictionary")
exec "$build/fuzz_$target" "${options[@]}" "$@" "$build/corpus/$target" "$sources/corpus/$target"
