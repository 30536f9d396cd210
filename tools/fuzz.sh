#!/usr/bin/env bash
# Runs every libFuzzer target of a fuzz build (`make fuzz`): first every checked-in input of
# fuzz/corpus/<target> once (the regression cases), then the fuzzer for SECONDS from those seeds.
# A target that fails does not stop the others. Ends with one line per target and a non-zero
# status when any replay failed or any target found something.
#
#   tools/fuzz.sh [SECONDS] [BUILD_DIR]          (defaults: 60, build-fuzz)
#
# New inputs go to BUILD_DIR/corpus/<target>, finds (crash-*, leak-*, timeout-*, oom-*) to
# BUILD_DIR/finds/<target>/ with the fuzzer's log beside them. A find becomes a regression case
# by copying it into fuzz/corpus/<target>/ under a name saying what it caught (e.g.
# regression-<what>) and committing it with the fix: every later run and CI replay it first.
set -uo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
build=${2:-build-fuzz}

targets=("$build"/fuzz/fuzz_*)
if [ ! -x "${targets[0]}" ]; then
    echo "fuzz: no fuzz targets in $build/fuzz (build with -DNORDA_FUZZ=ON first)" >&2
    exit 2
fi

# libFuzzer's statistic `stat::NAME: VALUE` from a log, else FALLBACK (0).
statistic() { sed -n "s/^stat::$1: *\([0-9]*\).*/\1/p" "$2" | tail -n 1 | grep . || echo "${3:-0}"; }

summary=()
failed=0
for target in "${targets[@]}"; do
    [ -x "$target" ] || continue
    name=$(basename "$target")
    seeds=fuzz/corpus/$name
    work=$build/corpus/$name
    finds=$build/finds/$name
    mkdir -p "$work" "$finds"
    [ -d "$seeds" ] || seeds=$work # a target without checked-in inputs yet
    log=$finds/fuzz.log
    echo "== $name: replaying $seeds, then $seconds s"

    # The checked-in inputs, each run once; a failing one is a regression.
    inputs=()
    [ "$seeds" = "$work" ] || mapfile -t inputs < <(find "$seeds" -type f | sort)
    replay=ok
    if [ ${#inputs[@]} -gt 0 ] && ! "$target" -rss_limit_mb=2048 -timeout=10 \
        -artifact_prefix="$finds/" "${inputs[@]}" >"$finds/replay.log" 2>&1; then
        replay=FAILED
        tail -n 40 "$finds/replay.log"
    fi

    before=$(find "$finds" -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' \) | wc -l)
    "$target" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
        -artifact_prefix="$finds/" "$work" "$seeds" >"$log" 2>&1
    status=$?
    after=$(find "$finds" -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' \) | wc -l)
    found=$((after - before))
    # A failure that left no input behind (a report at exit, say) still counts as a find.
    if [ $status -ne 0 ] && [ $found -eq 0 ]; then
        found=1
    fi
    if [ $found -gt 0 ]; then
        grep -m 1 -A 30 "ERROR: \|runtime error\|==ERROR\|deadly signal" "$log" || tail -n 40 "$log"
        echo "   log: $log"
    fi
    # After a crash the final statistics may be missing: the last progress line's count then.
    runs=$(statistic number_of_executed_units "$log" "$(sed -n 's/^#\([0-9]*\).*/\1/p' "$log" | tail -n 1)")
    added=$(statistic new_units_added "$log")
    line=$(printf '%-24s %10s runs %6s new %3s finds  replay of %s inputs %s' "$name" "$runs" "$added" \
        "$found" "${#inputs[@]}" "$replay")
    summary+=("$line")
    if [ $found -gt 0 ] || [ $replay != ok ]; then
        failed=1
    fi
done

echo "== fuzz summary ($seconds s each; finds in $build/finds/<target>/)"
printf '%s\n' "${summary[@]}"
exit $failed
