#!/usr/bin/env bash
# Runs a fuzz target for a while, from its committed corpus.
#   fuzz/run.sh NAME SECONDS         what reaches anything new is left, minimised, in
#                                    build/fuzz/NAME/new, to be copied to fuzz/corpus/NAME
#   fuzz/run.sh NAME SECONDS FOLDER  with the files of a folder as further seeds; what comes of them
#                                    is not ours, and nothing is left to be copied
#   fuzz/run.sh all SECONDS          every target; then again, where the tests know a folder of real
#                                    files, with its own of these
# Inputs that fail stay in build/fuzz/NAME. Needs the build "sanitize".
set -euo pipefail
cd "$(dirname "$0")/.."

name=$1 seconds=$2
shift 2
if [ "$name" = all ]; then
  real=$(sed -nE 's/^QX_CORPUS:[A-Z]+=//p' build/sanitize/CMakeCache.txt)
  failed=0
  while read -r each _ _ files; do
    fuzz/run.sh "$each" "$seconds" || failed=1
    if [ -n "$files" ] && [ -d "$real/$files" ]; then
      fuzz/run.sh "$each" "$seconds" "$real/$files" || failed=1
    fi
  done < <(grep '^[a-z]' fuzz/targets.txt)
  exit $failed
fi
read -r _ _ length _ <<<"$(grep "^$name " fuzz/targets.txt)"
target=build/sanitize/bin/fuzz_$name corpus=fuzz/corpus/$name folder=build/fuzz/$name
flags=(-max_len="$length" -timeout=20 -rss_limit_mb=4096 -print_final_stats=1
       -artifact_prefix="$folder/")
[ -e "fuzz/dict/$name.dict" ] && flags+=(-dict="fuzz/dict/$name.dict")
mkdir -p "$folder"
found=$(mktemp -d "$folder/runXXXXXX")
trap 'rm -rf "$found"' EXIT

log=$folder/log.txt
if ! "$target" "${flags[@]}" -max_total_time="$seconds" "$found" "$corpus" "$@" >"$log" 2>&1; then
  tail -n 60 "$log"
  echo "fuzz_$name failed; the input is in $folder" >&2
  exit 1
fi
edges() { sed -nE "s/^.*$1 +cov: ([0-9]+).*/\1/p" "$log" | tail -n 1; }
echo "fuzz_$name: $(sed -nE 's/^stat::number_of_executed_units: //p' "$log") runs," \
     "edges $(edges INITED) to $(edges DONE)"
[ $# -gt 0 ] && exit

rm -rf "$folder/new" "$folder/merged"
mkdir "$folder/new"
cp -r "$corpus" "$folder/merged"
# Files are kept for edges, not for how often one is taken.
"$target" "${flags[@]}" -use_counters=0 -merge=1 "$folder/merged" "$found" >"$folder/merge.txt" 2>&1
for file in "$folder"/merged/*; do
  [ -e "$corpus/$(basename "$file")" ] || mv "$file" "$folder/new"
done
rm -rf "$folder/merged"
echo "fuzz_$name: $(ls "$folder/new" | wc -l) new inputs in $folder/new"
