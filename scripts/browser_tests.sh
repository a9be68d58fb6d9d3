#!/usr/bin/env bash
# browser_tests.sh [--pictures | --where-there-is-one WRITE_PAGES]: opens the pages that the kit writes in a
# real browser and sees that nothing leaves, nothing is complained of, sorting, filtering and zoom work by
# mouse and keyboard, and that people who hear a page, or have a phone, are served too. With --pictures
# it makes docs/pictures anew.
#
# The browser is Debian's chromium, 850 MB with all that it needs, so scripts/test.sh calls this with
# --where-there-is-one: then nothing is installed or built, and without a browser it ends with status 77.
# What drives it (Playwright) and what judges accessibility (axe) are taken out of npm packages into
# .deps/browser/, unpacked only: none of their scripts is run. BROWSER names another Chromium. Times are
# printed and never judged.
set -euo pipefail
cd "$(dirname "$0")/.."
readonly kProgram=browser_tests
. scripts/packages.sh

readonly kDriver=playwright-core
readonly kDriverVersion=1.65.1
readonly kDriverSha256=6f5a60be62a4fddfbe7d10c448d8fbd54547da3358f2f8a04211440471ee863e
readonly kAxe=axe-core
readonly kAxeVersion=4.14.1
readonly kAxeSha256=e6b0ce02b84d892e2e33e403485e7f3d6c29e2be6df65daf44d89ba564139745
# The page brings this one itself; it has to be what was published.
readonly kPlot=uplot
readonly kPlotVersion=1.6.32
readonly kPlotSha256=4b8a8191e425658e3ea8c8c1314b0fc679c861ee3a1af2b20c7b16ba50b5133d

# The pages name fonts of many systems; here one of them has to be there.
readonly font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
pictures='' writer=''
case ${1-} in
  '') ;;
  --pictures) pictures=$PWD/docs/pictures ;;
  --where-there-is-one) writer=${2:?the program that writes the pages} ;;
  *) die "there is no '$1'; browser_tests.sh [--pictures | --where-there-is-one WRITE_PAGES]" ;;
esac

leave_out() {
  say "left out: $1; without --where-there-is-one it is installed"
  exit 77
}

provide_browser() {
  if [ -n "${BROWSER-}" ]; then
    [ -x "$BROWSER" ] || die "BROWSER names '$BROWSER', which is no program."
    return
  fi
  command -v chromium >/dev/null || install_packages chromium
  BROWSER=$(command -v chromium)
}

# provide NAME VERSION SHA256
provide() {
  local folder=.deps/browser/$1-$2
  [ -e "$folder/package.json" ] || unpack_from_npm "$folder" "$@"
}

provide_tools() {
  local missing=()
  command -v node >/dev/null || missing+=(nodejs)
  [ -e "$font" ] || missing+=(fonts-dejavu-core)
  [ "${#missing[@]}" = 0 ] || install_packages "${missing[@]}"
  provide_browser
  mkdir -p .deps/browser
  provide "$kDriver" "$kDriverVersion" "$kDriverSha256"
  provide "$kAxe" "$kAxeVersion" "$kAxeSha256"
  provide "$kPlot" "$kPlotVersion" "$kPlotSha256"
}

check_plot() {
  local own=kit/page/assets/uplot file
  for file in "$own"/*; do
    cmp "$file" ".deps/browser/$kPlot-$kPlotVersion/dist/${file##*/}" ||
      die "$file is not what was published as $kPlot $kPlotVersion."
  done
}

build_writer() {
  writer=build/dev/tests/kit/write_pages
  cmake --preset dev >/dev/null
  cmake --build --preset dev --target write_pages >"$1.log" || die "cannot build: see $1.log"
}

mkdir -p .deps build
if [ -n "$writer" ]; then
  [ -n "${BROWSER-}" ] || command -v chromium >/dev/null || leave_out 'there is no chromium here'
  command -v node >/dev/null || leave_out 'there is no node here'
  [ -e "$font" ] || leave_out "there is no $font"
  (provide_tools) || leave_out 'what drives a browser cannot be had'
fi
provide_tools
check_plot
readonly pages=$PWD/build/browser-pages
[ -n "$writer" ] || build_writer "$pages"
rm -rf "$pages"
mkdir -p "$pages"
"$writer" "$pages"
VORN_PAGES=$pages VORN_BROWSER=$BROWSER VORN_PICTURES=$pictures \
  VORN_DRIVER=$PWD/.deps/browser/$kDriver-$kDriverVersion \
  VORN_AXE=$PWD/.deps/browser/$kAxe-$kAxeVersion/axe.min.js \
  node --test tests/browser/
