# Packages of the system, pinned files, and how a script speaks. Sourced by scripts that have set
# `kProgram`, the name in front of what they say, and that run with `set -euo pipefail`. Where there is
# no apt-get they say what to install by hand: `kNeeds` if that is set, else the packages.

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
  printf '%s  %s\n' "$2" "$1" | sha256sum --check --status ||
    die "$(basename "$1") is not the file that was pinned (SHA-256 differs). Nothing was kept."
}
