#!/usr/bin/env bash
# Runs every libFuzzer target of a KLIPORA_FUZZ build for a while, each from
# its seeds and the corpus it grew in earlier runs, and reports what it found.
#   scripts/fuzz.sh BUILD_DIR SECONDS_PER_TARGET
# Findings are written to BUILD_DIR/findings/; the exit code is 1 when there
# is one.
set -uo pipefail
build="$1"
seconds="${2:-60}"
targets="$build/fuzz_targets.txt"
[ -s "$targets" ] || { echo "fuzz: no targets listed in $targets" >&2; exit 2; }

# Image seeds are made here, not kept in the repository: one small picture in
# every format the codec reads.
images="$build/seeds/image_codec_fuzzer"
if [ ! -d "$images" ]; then
  mkdir -p "$images"
  vips black "$images/base.v" 24 16 --bands 3 >/dev/null 2>&1
  vips draw_rect "$images/base.v" 200 3 3 10 8 --fill >/dev/null 2>&1 || true
  for ext in png jpg tif webp gif heic bmp ico; do
    vips copy "$images/base.v" "$images/seed.$ext" >/dev/null 2>&1 || true
  done
  vips copy "$images/base.v" "$images/seed-alpha.png[compression=9]" >/dev/null 2>&1 || true
  rm -f "$images/base.v"
fi

mkdir -p "$build/findings"
found=0
while read -r program seeds; do
  name="$(basename "$program")"
  corpus="$build/corpus/$name"
  mkdir -p "$corpus"
  extra=()
  [ "$name" = image_codec_fuzzer ] && extra+=("$images")
  log="$build/findings/$name.log"
  "$program" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=3072 -max_len=65536 \
    -artifact_prefix="$build/findings/$name-" "$corpus" $seeds "${extra[@]}" >"$log" 2>&1
  status=$?
  runs="$(grep -o 'Done [0-9]* runs' "$log" | grep -o '[0-9]*' | tail -1)"
  if [ $status -eq 0 ]; then
    printf 'fuzz: %-32s %10s runs in %ss, no finding\n' "$name" "${runs:-?}" "$seconds"
  else
    found=1
    printf 'fuzz: %-32s FINDING (exit %d), see %s\n' "$name" "$status" "$log"
    grep -m1 -E 'ERROR: |runtime error:|==ERROR' "$log" | sed 's/^/      /'
  fi
done <"$targets"
exit $found
