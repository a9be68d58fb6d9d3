#!/usr/bin/env bash
# check_board.sh BOARD LIBVORN FOLDER [EMULATOR...]: unpacks the archive BOARD where nothing else is, puts
# LIBVORN, the scripted runtime, beside what was in it, and uses it as somebody at a board does.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
board=$(realpath "$1") library=$(realpath "$2")
. "$here/../support/own_folder.sh"
own_folder "$(realpath -m "$3")"
emulator=("${@:4}")
fail() {
  echo "check_board: $*" >&2
  exit 1
}

# has FILE TEXT...
has() {
  local text
  for text in "${@:2}"; do
    grep -qF -e "$text" "$1" || fail "$(basename "$1") should say '$text', and says: $(cat "$1")"
  done
}

mkdir "$work/a board"
tar -xzf "$board" -C "$work/a board"
mv "$work/a board/"vorn-* "$work/a board/vorn"
cd "$work/a board/vorn"

for file in vorn* libvorn-*.so; do
  for check in check_needed check_symbol_versions; do
    cmake -DREADELF="$(command -v readelf)" -DPROGRAM="$file" -P "$here/../app/$check.cmake" ||
      fail "$file: $check"
  done
  readelf -d "$file" >"$work/dynamic"
  # shellcheck disable=SC2016  # it is the loader that knows $ORIGIN
  sed -nE '/R(UN)?PATH/ { /\[\$ORIGIN\/?\]$/! p }' "$work/dynamic" >"$work/paths"
  [ ! -s "$work/paths" ] ||
    fail "$file looks where it was built: $(cat "$work/dynamic")"
done

# A program that is started by another is started by the system, which knows nothing of an emulator.
if [ "${#emulator[@]}" != 0 ]; then
  for program in vorn*; do
    mv "$program" "$program.emulated"
    printf '#!/bin/sh\nexec %s "%s" "$@"\n' "${emulator[*]}" "$PWD/$program.emulated" >"$program"
    chmod +x "$program"
  done
fi

printf 'input name=image dims=1,1,2,3 type=4 stride=8 size=16
input name=task dims=1,1,1,64 type=4 stride=64 size=64
input name=work dims=1,1,1,64 type=4 stride=64 size=64
output name=same dims=2,3 type=4 stride=8 size=16
write 0 copy 0
' >"$work/script"
export VORN_SCRIPT=$work/script
printf '{}' >"$work/config.json"
printf 'model' >"$work/model.om"
printf '\1\2\3\4\5\6' >"$work/one.bin"
printf '\6\5\4\3\2\1' >"$work/two.bin"
printf 'one.bin\ntwo.bin\n' >"$work/list.txt"
model=(-m "$work/model.om" -j "$work/config.json")

# Without a runtime there is one clear line.
status=0
./vorn inspect "${model[@]}" >"$work/out" 2>"$work/err" || status=$?
[ "$status" = 5 ] || fail "inspect without a runtime ends with $status, not 5: $(cat "$work/err")"
has "$work/err" 'libvorn.so'

cp "$library" libvorn.so
./vorn inspect "${model[@]}" >"$work/out" || fail "inspect ends with $?"
has "$work/out" image 1x1x2x3 uint8 "$PWD/libvorn.so"

mkdir "$work/dumps"
./vorn trace -o "$work/run.vtrace" -- ./vorn-run "${model[@]}" -i "$work/list.txt" -o "$work/dumps" \
  >"$work/out" 2>"$work/err" || fail "the traced run ends with $?: $(cat "$work/out" "$work/err")"
has "$work/out" 'execute sample success'
has "$work/err" vorn_mdl_execute
printf '%s\n' "$work"/dumps/*/*.bin >"$work/found"
[ "$(wc -l <"$work/found")" = 2 ] || fail "there should be two dumps: $(cat "$work/found")"

# It asks the system's loader which libvorn.so vorn-run gets, and there is none for an emulated program.
./vorn launch --help >"$work/out" || fail "launch --help ends with $?"
if [ "${#emulator[@]}" = 0 ]; then
  ./vorn launch "${model[@]}" -i "$work/list.txt" --run "$work/run" --quiet >"$work/out" 2>"$work/err" ||
    fail "launch ends with $?: $(cat "$work/err")"
  for file in run.json samples.jsonl times.jsonl; do
    [ -s "$work/run/$file" ] || fail "launch left no $file: $(ls "$work/run")"
  done
  cat "$work"/run/dumps/1/*.float >"$work/values"
  has "$work/values" 6.0
fi
