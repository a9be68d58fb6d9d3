# Packages of Debian 13 that are unpacked only: nothing of them is installed and none of their scripts
# is run. Sourced from the project's folder, by scripts that have set what packages.sh asks for.
. scripts/packages.sh

readonly kDebian13Suite=trixie

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
