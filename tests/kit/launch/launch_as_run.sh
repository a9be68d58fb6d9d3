#!/usr/bin/env bash
# launch_as_run.sh WORD...: does what vorn-run does with these words, by way of vorn launch; where the
# words are not those that launch gives, or the model cannot be described, it is vorn-run itself.
# VORN_TESTED_BUILD names the folder of both; a line goes to VORN_LAUNCHED for each run by launch.
set -uo pipefail
build=$VORN_TESTED_BUILD
run_itself() { exec "$build/vorn-run" "$@"; }

declare -A value
if [ $(($# % 2)) != 0 ] || [ ! -p /dev/stdout ]; then run_itself "$@"; fi
for ((at = 1; at < $#; at += 2)); do
  next=$((at + 1))
  option=${!at} word=${!next}
  [[ $option =~ ^-[mijobtrp]$ && $word != "" && -z ${value[$option]+x} ]] || run_itself "$@"
  value[$option]=$word
done
words=(-m "${value[-m]-}" -j "${value[-j]-}" -i "${value[-i]-}")
for option in -m -j -i -o; do [ -n "${value[$option]-}" ] || run_itself "$@"; done
out=${value[-o]}
if [ ! -d "$out" ] || [ ! -w "$out" ] || [ -n "$(ls -A "$out")" ]; then run_itself "$@"; fi
for option in -b -t; do
  [[ ${value[$option]-1} =~ ^[1-9][0-9]{0,8}$ ]] || run_itself "$@"
  [ -z "${value[$option]-}" ] || words+=("$option" "${value[$option]}")
done
[ -z "${value[-r]-}" ] || words+=(-r "${value[-r]}")
case ${value[-p]-} in "") ;; 1) words+=(-p) ;; *) run_itself "$@" ;; esac
# The order in which options come shows in the lines of -b and -t.
if [ "$1$3$5$7" != -m-i-j-o ] || [[ "$*" == *" -t "*" -b "* ]]; then run_itself "$@"; fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Not by the program that is recorded: it would be loaded twice.
(unset VORN_RECORD && exec "$build/vorn-inspect" -m "${value[-m]}" -j "${value[-j]}" --json) >"$work/model.json" 2>/dev/null ||
  { rm -rf "$work"; run_itself "$@"; }
echo "$*" >>"$VORN_LAUNCHED"
"$build/vorn-launch" "${words[@]}" --run "$work/run" --model-json "$work/model.json" --anyway --quiet >&2
[ -e "$work/run/run.json" ] || exit 97
# The folder for the dumps is launch's own.
sed "s|$work/run/chunks/0.1/dumps|$out|g" "$work/run/log.txt"
cat "$work/run/errors.txt" >&2
cp -R "$work/run/dumps/." "$out/"
field() { sed -nE "s/^  \"$1\": \"?([^\",]*)\"?,?\$/\\1/p" "$work/run/run.json"; }
signal=$(field signal)
status=$(field programStatus)
[ -z "$signal" ] || { rm -rf "$work"; kill "-${signal#SIG}" $$; }
exit "${status:-98}"
