# Packages of the system, and packages of Debian 13 that are unpacked only: nothing of those is
# installed and none of their scripts is run. Sourced by scripts that have set `kProgram`, the name
# in front of what they say, and `kNeeds`, what is to be installed by hand where there is no apt-get,
# and that run with `set -euo pipefail`.

readonly kDebian13Suite=trixie

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
    die "no apt-get here. Install by hand: $kNeeds."
  say "updating the package lists"
  as_root apt-get update -qq
  apt_lists_are_new=yes
}

install_packages() {
  update_apt_lists
  say "installing $*"
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" \
    >/dev/null
}

check_sha256() {
  printf '%s  %s\n' "$2" "$1" | sha256sum --check --status ||
    die "$(basename "$1") is not the file that was pinned (SHA-256 differs). Nothing was kept."
}

# Writes a source list for Debian 13 with the very mirrors that this machine uses itself, security
# archives left out. Understands both formats of apt's lists.
derive_source_list() {
  local out=$1 found=no file
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -e "$file" ] || continue
    awk -v suite="$kDebian13Suite" 'BEGIN { RS = ""; FS = "\n" }
      /URIs:[^\n]*\/debian\/?( |\n|$)/ && !/-security/ {
        for (i = 1; i <= NF; ++i) {
          if ($i ~ /^#/) continue
          if ($i ~ /^Suites:/) $i = "Suites: " suite
          if ($i ~ /^Components:/) $i = "Components: main"
          print $i
        }
        print ""
      }' "$file" >>"$out.sources"
  done
  [ -s "$out.sources" ] && found=$out.sources
  if [ "$found" = no ]; then
    cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null |
      sed -nE '/-security/d; s#^deb( +\[[^]]*\])? +([^ ]+/debian/?) +[^ ]+ .*#deb\1 \2 '"$kDebian13Suite"' main#p' |
      sort -u >"$out.list"
    [ -s "$out.list" ] && found=$out.list
  fi
  [ "$found" != no ] || die "found no Debian mirror in /etc/apt to fetch packages of Debian 13 from."
  printf '%s\n' "$found"
}

# The new mirrors' keys came with an update of this package.
update_debian_keys() {
  as_root apt-get install -y -qq --no-install-recommends debian-archive-keyring >/dev/null
}

# unpack_from_debian13 WORK PACKAGE VERSION SHA256: leaves the package's files in WORK/PACKAGE.
unpack_from_debian13() {
  local work=$1 package=$2 version=$3 sha256=$4 list
  list=$(derive_source_list "$work/debian13")
  mkdir -p "$work/apt/lists/partial" "$work/apt/archives/partial"
  local options=(-qq -o Dir::Etc::sourcelist="$list" -o Dir::Etc::sourceparts=/dev/null
    -o Dir::State::lists="$work/apt/lists" -o Dir::Cache="$work/apt"
    -o Dir::Cache::archives="$work/apt/archives" -o APT::Sandbox::User=root
    -o APT::Architecture=amd64 -o APT::Architectures=amd64)
  apt-get "${options[@]}" update ||
    die "cannot read the package lists of Debian 13 from this machine's mirrors; is the network there?"
  (cd "$work" && apt-get "${options[@]}" download "$package=$version") ||
    die "cannot download $package $version."
  local deb
  deb=$(echo "$work/$package"_*.deb)
  check_sha256 "$deb" "$sha256"
  dpkg-deb -x "$deb" "$work/$package"
}
