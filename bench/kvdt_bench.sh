#!/bin/sh
# kvdt convert over a file of ISO 8601 readings against `date -u -f FILE
# +%s` on the same file in the same run, and kvdt's peak memory for a file
# ten times longer (it streams, so the two should match).
#   usage: bench/kvdt_bench.sh KVDT [LINES]     (LINES default 1000000)
# The goal is a time ratio kvdt / date of at most 0.2. CPU time (user +
# system) is compared as well as wall time: the machine may be shared.
# Result, 2026-11-24, shared 2-vCPU VM at load average ~7, three runs:
#   wall 0.154 0.186 0.180, cpu 0.161 0.172 0.167 (kvdt 0.29-0.31 cpu s,
#   date 1.74-1.86); the previous release 0.322 / 0.324 in the same hour.
#   Peak memory 4.7 MiB for 10^5 and for 10^6 lines.
set -eu
KVDT=${1:?usage: kvdt_bench.sh KVDT [LINES]}
LINES=${2:-1000000}
SMALL=$((LINES / 10))
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# Readings spread over 1970 to 2033 with milliseconds, the same each run.
readings() {
  awk -v n="$1" 'BEGIN {
    srand(20161231);
    for (i = 0; i < n; ++i) {
      t = int(rand() * 2000000000);
      printf "%s.%03dZ\n", strftime("%Y-%m-%dT%H:%M:%S", t, 1), int(rand() * 1000);
    }
  }'
}
readings "$LINES" >"$dir/big"
head -n "$SMALL" "$dir/big" >"$dir/small"

# Elapsed and CPU seconds and the peak resident set of one command.
measure() {
  /usr/bin/time -f '%e %U %S %M' -o "$dir/time" "$@" >/dev/null
  cat "$dir/time"
}

set -- $(measure "$KVDT" convert --input "$dir/big")
k_wall=$1 k_cpu=$(awk "BEGIN { print $2 + $3 }") k_rss_big=$4
set -- $(measure date -u -f "$dir/big" +%s)
d_wall=$1 d_cpu=$(awk "BEGIN { print $2 + $3 }")
set -- $(measure "$KVDT" convert --input "$dir/small")
k_rss_small=$4

printf '%-34s %8s %8s\n' "$LINES readings" "wall s" "cpu s"
printf '%-34s %8s %8s\n' "kvdt convert --input FILE" "$k_wall" "$k_cpu"
printf '%-34s %8s %8s\n' "date -u -f FILE +%s" "$d_wall" "$d_cpu"
awk -v kw="$k_wall" -v kc="$k_cpu" -v dw="$d_wall" -v dc="$d_cpu" 'BEGIN {
  printf "ratio kvdt / date: wall %.3f, cpu %.3f (goal <= 0.2)\n",
         (dw > 0 ? kw / dw : 0), (dc > 0 ? kc / dc : 0) }'
printf 'kvdt max RSS: %s KiB for %s lines, %s KiB for %s lines\n' \
  "$k_rss_small" "$SMALL" "$k_rss_big" "$LINES"
