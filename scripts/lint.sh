#!/usr/bin/env bash
# lint.sh [--all] [--since REVISION]: looks at the code without running it. One line a fault, exit
# status 1 if there was one. Installs the tools that are missing.
#
#   layout      all C and C++ files, by clang-format
#   scripts     all shell scripts, by shellcheck
#   Python      all Python files, by flake8
#   warnings    all C and C++ files that the build knows, by the front end of clang++; with --all by that
#               of g++, too, which the build has anyway
#   clang-tidy  files of uncommitted changes and of the last commits, the newest first: products, which
#               CMake puts together, by the last 30 commits and for some three minutes, tests by the last
#               ten and for one; with --since those that came after that revision. What is left out for
#               the time is said. With --all every file
set -euo pipefail
cd -P "$(dirname "$0")/.." # as CMake and the compilers name it
readonly kProgram=lint
. scripts/packages.sh

readonly kClang=14            # another version lays out and finds otherwise
readonly kTidyUnitedACore=4   # at some 40 s each, or 90 for the longest
readonly kTidyFilesACore=1    # at some 20 s each, or a minute for the longest
readonly kBuild=build/lint
readonly kUnited=UnifiedSources # by this name the analyzer looks into what a file includes

faults=0
# look NAME CHECK [ARGUMENT...]: runs a check, which prints a line a fault and returns the status of
# the tool behind it. A tool that fails without a word is a fault too.
look() {
  local log=$kBuild/faults.log status=0 found
  "${@:2}" >"$log" || status=$?
  cat "$log"
  found=$(wc -l <"$log")
  if [ "$found" = 0 ] && [ "$status" != 0 ]; then
    say "$1: ended with status $status; what it said is in $kBuild/said.log"
    found=1
  fi
  say "$1: $found faults"
  faults=$((faults + found))
}

# within: paths without the project's own in front, whatever characters that has.
within() {
  TOP=$PWD/ awk '{ print index($0, ENVIRON["TOP"]) == 1 ? substr($0, length(ENVIRON["TOP"]) + 1) : $0 }'
}

# told PATTERN COMMAND...: runs the command and lets through what matches of what it says.
told() {
  local status=0
  "${@:2}" >"$kBuild/said.log" 2>&1 || status=$?
  within <"$kBuild/said.log" | grep -E -- "$1" | sort -u
  return "$status"
}

# The tree may belong to somebody else than who looks at it, as it does in many a container.
ask_git() { git -c safe.directory='*' "$@"; }

# files_like PATTERN...: what git knows, or would know with the next "git add".
files_like() { ask_git ls-files --cached --others --exclude-standard --deduplicate -- "$@" | existing; }
existing() { while IFS= read -r file; do [ ! -e "$file" ] || printf '%s\n' "$file"; done; }

provide_tools() {
  local missing=()
  command -v g++ >/dev/null || missing+=(g++)
  command -v clang++ >/dev/null || missing+=(clang)
  command -v clang-format >/dev/null || missing+=(clang-format)
  command -v clang-tidy >/dev/null || missing+=(clang-tidy)
  command -v shellcheck >/dev/null || missing+=(shellcheck)
  command -v flake8 >/dev/null || missing+=(flake8)
  command -v git >/dev/null || missing+=(git)
  [ -x /usr/bin/python3 ] || missing+=(python3)
  [ "${#missing[@]}" = 0 ] || install_packages "${missing[@]}"
}

# has_version TOOL: whether its findings are those that the code was written to.
has_version() {
  local version
  version=$("$1" --version | grep -oE 'version [0-9]+' | head -n 1)
  [ "$version" = "version $kClang" ] && return
  say "$1: left out; it is of $version, and $kClang is the one that counts"
  return 1
}

check_layout() {
  files_like '*.c' '*.cpp' '*.h' | told 'error: ' xargs -d '\n' clang-format --dry-run -Werror
}

check_scripts() { files_like '*.sh' '*.bash' .ci/run | told . xargs -d '\n' shellcheck --format gcc; }

check_python() { files_like '*.py' | told . xargs -d '\n' flake8; }

# configure BUILD COMPILER C_COMPILER [OPTION...]
configure() {
  cmake -S . -B "$kBuild/$1" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
    -DCMAKE_CXX_COMPILER="$2" -DCMAKE_C_COMPILER="$3" "${@:4}" >"$kBuild/$1.log" 2>&1 ||
    die "cannot configure for $2: see $kBuild/$1.log"
}

# Precompiled headers hide a missing include, so only the second compiler has them: with them it
# takes a third of the time.
precompile() {
  local headers
  mapfile -t headers < <(ninja -C "$kBuild/$1" -t targets all | sed -nE 's/^(.*\.pch): .*/\1/p')
  [ "${#headers[@]}" = 0 ] || ninja -C "$kBuild/$1" "${headers[@]}" >>"$kBuild/$1.log" 2>&1 ||
    die "cannot precompile headers with $1: see $kBuild/$1.log"
}

check_warnings() { told . /usr/bin/python3 -B scripts/check_warnings.py "$kBuild/$1" .; }

# newest_first COMMITS...: the files of these commits, those of uncommitted changes first. Where the
# history is cut off, the oldest commit seems to touch all files and is left out.
newest_first() {
  local kept=()
  [ "$(ask_git rev-parse --is-shallow-repository)" = false ] || kept=(--min-parents=1)
  ask_git ls-files --others --exclude-standard
  ask_git diff --name-only HEAD
  ask_git log "${kept[@]}" --name-only --format= "$@"
}

# Each file as one that the build compiles: a header is seen by way of the source of its name.
as_sources() {
  local file
  while IFS= read -r file; do
    case $file in
      *.cpp) ;;
      *.h) file=${file%.h}.cpp ;;
      *) continue ;;
    esac
    [ ! -e "$file" ] || printf '%s\n' "$file"
  done | awk '!seen[$0]++'
}

# compiled_in BUILD: the C++ files that it compiles, those included that CMake has put together.
compiled_in() {
  sed -nE 's/^ *"file": "(.*\.(cpp|cxx))",?$/\1/p' "$kBuild/$1/compile_commands.json" | within
}

# united: what is in the files that CMake has put together, a line each: file, tab, what it is in.
united() {
  local file
  compiled_in $kUnited | grep '/Unity/' | while IFS= read -r file; do
    sed -nE 's/^#include "(.*)"$/\1/p' "$file" | within | FILE=$file awk '{ print $0 "\t" ENVIRON["FILE"] }'
  done
}

# Each file as the one that has it where CMake has put products together.
as_united() {
  awk -F '\t' 'FNR == NR { unit[$1] = $NF; next } ($0 in unit) && !seen[unit[$0]]++ { print unit[$0] }' \
    <(united; compiled_in $kUnited) -
}

# alone: what is looked at file by file. Only what is compiled here can be understood, which
# benchmarks are not.
alone() { grep -xFf <(compiled_in clang++) | grep -vxFf <(compiled_in $kUnited; united | cut -f 1); }

# check_tidiness BUILD CHECKS FILE...
check_tidiness() {
  printf '%s\n' "${@:3}" |
    told '(warning|error): ' xargs -d '\n' -n 1 -P "$(nproc)" \
      clang-tidy -p "$kBuild/$1" --checks="$2" --quiet
}

# tidy NAME BUILD CHECKS [MOST]: looks at the files that the input names, at the first `most` of them.
tidy() {
  local files most file
  mapfile -t files
  most=${4:-${#files[@]}}
  for file in "${files[@]:most}"; do say "clang-tidy: left for --all: ${file#"$kBuild/$kUnited/"}"; done
  files=("${files[@]:0:most}")
  [ "${#files[@]}" = 0 ] || look "clang-tidy, ${#files[@]} $1" check_tidiness "$2" "$3" "${files[@]}"
}

all=no
commits=()
while [ "$#" -gt 0 ]; do
  case $1 in
    --all) all=yes ;;
    --since)
      commits=("$(ask_git rev-parse --verify --quiet "${2-}^{commit}")..HEAD") ||
        die "--since takes a revision, and '${2-}' is none."
      shift
      ;;
    *) die "there is no '$1'; lint.sh [--all] [--since REVISION]" ;;
  esac
  shift
done

provide_tools
ask_git rev-parse --verify --quiet HEAD >/dev/null ||
  die 'git says which files there are, and this is no clone of a repository.'
./scripts/setup.sh
mkdir -p "$kBuild"
! has_version clang-format || look layout check_layout
look scripts check_scripts
look Python check_python
if [ "$all" = yes ]; then
  configure g++ g++ gcc
  look 'warnings of g++' check_warnings g++
fi
configure clang++ clang++ clang -DVORN_BUILD_FUZZERS=ON -DVORN_PRECOMPILE=ON
precompile clang++
look 'warnings of clang++' check_warnings clang++
if has_version clang-tidy; then
  configure $kUnited clang++ clang -DVORN_BUILD_TESTS=OFF -DVORN_UNITY=ON
  united_most=$((kTidyUnitedACore * $(nproc)))
  files_most=$((kTidyFilesACore * $(nproc)))
  # How products are put together is CMake's business.
  no_includes=-bugprone-suspicious-include
  if [ "$all" = yes ]; then
    tidy products $kUnited $no_includes < <(compiled_in $kUnited)
    tidy files clang++ '' < <(files_like '*.cpp' | alone)
  else
    tidy products $kUnited $no_includes "$united_most" \
      < <(newest_first "${commits[@]:--n30}" | as_sources | as_united)
    tidy files clang++ '' "$files_most" < <(newest_first "${commits[@]:--n10}" | as_sources | alone)
  fi
fi
[ "$faults" = 0 ] || die "$faults faults"
say 'no faults'
