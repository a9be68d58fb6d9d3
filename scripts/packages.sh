# Packages of the system and of npm, and how a script speaks. Sourced by scripts that have set
# `kProgram`, the name in front of what they say, and that run with `set -euo pipefail`. Where there is
# no apt-get they say what to install by hand: `kNeeds` if that is set, else the packages.

# shellcheck disable=SC2154  # kProgram is the caller's
say() { printf '%s: %s\n' "$kProgram" "$*"; }
die() {
  printf '%s: %s\n' "$kProgram" "$*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    die "needs root for: $*. Run it as root, or install sudo."
  fi
}

apt_lists_are_new=no
update_apt_lists() {
  [ "$apt_lists_are_new" = yes ] && return
  command -v apt-get >/dev/null ||
    die "no apt-get here. Install by hand: ${kNeeds:-$*}."
  say "updating the package lists"
  as_root apt-get update -qq
  apt_lists_are_new=yes
}

install_packages() {
  update_apt_lists "$@"
  say "installing $*"
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" \
    >/dev/null || die "could not install $*."
}

check_sha256() {
  printf '%s  %s\n' "$2" "$1" | sha256sum --check --status && return
  rm -f "$1"
  die "$(basename "$1") is not the file that was pinned (SHA-256 differs). Nothing was kept."
}

# fetch_from_npm FOLDER PACKAGE VERSION SHA256: leaves the archive as FOLDER/package.tgz. None of the
# package's scripts is run.
fetch_from_npm() {
  local folder=$1 package=$2 version=$3 sha256=$4
  local name=${package#@}
  local archive=$folder/${name//\//-}-$version.tgz
  command -v npm >/dev/null || install_packages npm
  npm pack --loglevel=error --ignore-scripts --pack-destination "$folder" "$package@$version" \
    >/dev/null || die "cannot download $package $version with npm; is the network there?"
  check_sha256 "$archive" "$sha256"
  mv "$archive" "$folder/package.tgz"
}

# unpack_from_npm FOLDER PACKAGE VERSION SHA256: leaves the package's files in FOLDER. A try that broke
# off leaves no FOLDER.
unpack_from_npm() {
  local folder=$1
  rm -rf "$folder" "$folder.new"
  mkdir -p "$folder.new"
  fetch_from_npm "$folder.new" "${@:2}"
  tar -xzf "$folder.new/package.tgz" -C "$folder.new" --strip-components=1
  rm "$folder.new/package.tgz"
  mv "$folder.new" "$folder"
}
