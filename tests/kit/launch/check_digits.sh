#!/usr/bin/env bash
# check_digits.sh PAGE SOURCE BUILD FOLDER: the example of a verb's page runs where examples/ and
# build/release are those of SOURCE and BUILD, and leaves what vorn-run leaves; so does a run in chunks
# that was killed and gone on with.
set -euo pipefail
page=$1 source=$2 build=$3
. "$(dirname "$0")/../../support/own_folder.sh"
own_folder "$4"
mkdir "$work/build" "$work/plain"
ln -s "$source/examples" "$work/examples"
ln -s "$build" "$work/build/release"
export XDG_CACHE_HOME=$work/cache
cd "$work"

example=$(awk '/^```sh$/ { on = 1; next } /^```$/ { on = 0 } on' "$page")
[ -n "$example" ] || { echo "no example in $page"; exit 1; }
bash -euc "$example"
digits=(-m examples/digits/digits.onnx -j examples/digits/host.json -i examples/digits/list.txt)
build/release/vorn-run "${digits[@]}" -o plain >plain.log
diff plain.log build/digits.run/log.txt

# dumps FOLDER: each file below it by its name without the time stamp, with a sum of its bytes.
dumps() { (cd "$1" && find . -type f -exec cksum {} +) | sed -E 's/\.[0-9]+\.(bin|float)$/.\1/' | sort -k 3; }
dumps plain >plain.sums
[ "$(wc -l <plain.sums)" = 400 ]
diff plain.sums <(dumps build/digits.run/dumps)

build/release/vorn-launch "${digits[@]}" --run chunks --chunk 30 --quiet &
launch=$!
while [ ! -s chunks/samples.jsonl ] && kill -0 "$launch" 2>/dev/null; do sleep 0.02; done
kill -9 "$launch" 2>/dev/null || true
wait "$launch" || true
build/release/vorn-launch "${digits[@]}" --run chunks --chunk 30 --resume
diff plain.sums <(dumps chunks/dumps)
[ "$(wc -l <chunks/samples.jsonl)" = 200 ]
