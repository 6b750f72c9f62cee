#!/bin/sh
# bench/disk-turn.sh BUILD_DIRECTORY [SIDE [DIRECTORY [MEGABYTES]]]: a quarter turn of a picture in a file, beside cp, in
# a control group that has so much memory (256 MB), file cache included. Without the right to make one, without limit.
set -eu

if [ $# = 0 ]; then
  echo "usage: bench/disk-turn.sh BUILD_DIRECTORY [SIDE [DIRECTORY [MEGABYTES]]]" >&2
  exit 2
fi
program=$1/bench/tarn_disk_turn
side=${2:-20000}
directory=${3:-$1/bench}
bytes=$((${4:-256} << 20))

# limit FILE GROUP: makes the group and enters it with this shell.
limit() {
  group=$2/tarn-disk-turn-$$
  mkdir "$group" 2>/dev/null || return 1
  trap 'rmdir "$group" 2>/dev/null || true' EXIT
  echo "$bytes" >"$group/$1" && [ -w "$group/cgroup.procs" ]
}
if limit memory.limit_in_bytes /sys/fs/cgroup/memory 2>/dev/null || limit memory.max /sys/fs/cgroup 2>/dev/null; then
  echo "memory limited to $((bytes >> 20)) MB"
  # shellcheck disable=SC2016  # the inner shell's
  sh -c 'echo $$ >"$1/cgroup.procs" && shift && exec "$@"' sh "$group" "$program" "$side" "$directory"
else
  echo "no control group: memory is not limited"
  "$program" "$side" "$directory"
fi
