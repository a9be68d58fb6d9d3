#!/usr/bin/env bash
# check_install.sh CMAKE BUILD_DIR FOLDER: installs, moves the tree, builds a project against it and
# runs the command out of it.
set -euo pipefail
cmake=$1 build=$2
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../support/own_folder.sh"
fail() {
  echo "check_install: $*" >&2
  exit 1
}

own_folder "$3"
"$cmake" --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved"

# Whoever passes the tree on owes the notices of what it holds; each file is named by the page.
notices=$work/moved/share/doc/vorn-run
wanted=(README.md nlohmann-json-LICENSE.txt xxhash-LICENSE.txt)
if compgen -G "$work/moved/lib/libonnxruntime.so*" >/dev/null; then
  wanted+=(onnxruntime-LICENSE.txt onnxruntime-ThirdPartyNotices.txt)
fi
if [ -e "$work/moved/bin/vorn-report" ] || [ -e "$work/moved/bin/vorn-history" ]; then
  wanted+=(uplot-LICENSE.txt)
fi
for notice in "${wanted[@]}"; do
  [ -s "$notices/$notice" ] || fail "the tree lacks the notice $notice in ${notices#"$work/moved/"}"
done
[ "$(find "$notices" -type f | wc -l)" = "${#wanted[@]}" ] ||
  fail "the tree has notices of what it does not hold: $(ls "$notices")"

env -u LD_LIBRARY_PATH ldd "$work/moved/bin/vorn-run" >"$work/ldd"
grep -q "libvorn.so => $work/moved/" "$work/ldd" ||
  fail "the installed command does not find its own library: $(cat "$work/ldd")"
if grep -vE 'linux-vdso|ld-linux|lib(vorn|stdc\+\+|gcc_s|m|c)\.so' "$work/ldd"; then
  fail "the command depends on more than the standard library and libvorn"
fi

# The verbs find each other and the runtime, too.
env -u LD_LIBRARY_PATH "$work/moved/bin/vorn" inspect -m "$here/../../examples/digits/digits.onnx" \
  >"$work/inspected" || fail "the installed kit does not describe a model"
grep -q "^runtime  $work/moved/" "$work/inspected" ||
  fail "the installed kit asks another runtime: $(cat "$work/inspected")"

"$work/moved/bin/vorn" trace --output "$work/trace" "$work/moved/bin/vorn-run" -m /nonexistent \
  -i /nonexistent -j /nonexistent >"$work/out" 2>"$work/traced" || true
grep -q '^vorn_init ' "$work/traced" || fail "the installed kit traces nothing: $(cat "$work/traced")"

# Each verb has its manual page, and the command its completion.
for program in "$work/moved"/bin/vorn-*; do
  name=${program##*/}
  [ "$name" = vorn-run ] || grep -q "^\.TH" "$work/moved/share/man/man1/$name.1" ||
    fail "there is no manual page of $name"
done
grep -q '^complete .* vorn$' "$work/moved/share/bash-completion/completions/vorn" ||
  fail "there is no completion of vorn"

# The README shows this project; it is the one that is built here.
awk '/^```cmake$/ { on = 1; next } /^```$/ { on = 0 } on' "$here/../../README.md" |
  diff -u - "$here/consumer/CMakeLists.txt" >"$work/shown" ||
  fail "README.md shows another project than $here/consumer: $(cat "$work/shown")"

echo '{}' >"$work/config.json"
"$cmake" -S "$here/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
"$cmake" --build "$work/consumer" >/dev/null
[ "$("$work/consumer/consumer" "$work/config.json")" = "16 bits" ] ||
  fail "the project built against the installed tree did not run"

# An empty list of inputs is a whole run without an inference; a missing model ends it early.
"$work/moved/bin/vorn-run" -m /nonexistent -i /nonexistent -j "$work/config.json" >"$work/out" &&
  fail "a missing model was accepted"
grep -qF '[INFO]  vorn init success' "$work/out" || fail "no runtime came up: $(cat "$work/out")"
