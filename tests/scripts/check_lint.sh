#!/usr/bin/env bash
# check_lint.sh SOURCE FOLDER: runs lint.sh of SOURCE over a small project: reached by a link and
# without a fault, and in a folder with an odd name and with a fault of each kind. Ends with status 77
# where a tool is missing or has another version.
set -euo pipefail
source=$1
. "$(dirname "$0")/../support/own_folder.sh"
own_folder "$2"
fail() {
  printf 'check_lint: %s\n' "$1" >&2
  cat "$work/said" >&2
  exit 1
}

for tool in g++ clang++ clang-format clang-tidy shellcheck flake8 git ninja; do
  command -v "$tool" >/dev/null || exit 77
done
for tool in clang-format clang-tidy; do
  "$tool" --version | grep -q 'version 14' || exit 77
done

project="$work/c++ (1)"
mkdir -p "$project/scripts" "$project/src" "$project/tests"
ln -s "$project" "$work/link"
cp "$source"/scripts/{lint.sh,packages.sh,check_warnings.py} "$project/scripts"
cp "$source"/.clang-format "$source"/.clang-tidy "$source"/.flake8 "$source"/.shellcheckrc "$project"
printf '#!/usr/bin/env bash\n' >"$project/scripts/setup.sh"
chmod +x "$project/scripts/setup.sh"
echo build >"$project/.gitignore"
cat >"$project/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(small LANGUAGES C CXX)
option(VORN_BUILD_TESTS "" ON)
option(VORN_UNITY "" OFF)
file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp)
add_library(small OBJECT ${sources})
target_compile_options(small PRIVATE -Wall)
set_target_properties(small PROPERTIES UNITY_BUILD ${VORN_UNITY})
if(VORN_BUILD_TESTS)
  file(GLOB tests CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/*.cpp)
  add_library(small_test OBJECT ${tests})
endif()
END
echo 'int Clean() { return 1; }' >"$project/src/clean.cpp"
echo 'int CleanTest() { return 1; }' >"$project/tests/clean_test.cpp"
cd "$project"
git init -q
commit() {
  git add .
  git -c user.name=lint -c user.email=lint@localhost commit -qm "$1"
}
commit 'A small project'

# lint STATUS FOLDER [OPTION...]: runs it there.
lint() {
  local status=0
  (cd "$2" && ./scripts/lint.sh "${@:3}") >"$work/said" 2>&1 || status=$?
  [ "$status" = "$1" ] || fail "ended with status $status in $2 and not with $1"
}
said() { grep -qE -- "$1" "$work/said" || fail "said nothing like '$1'"; }

lint 0 "$work/link" --all
said '^lint: clang-tidy, products: 0 faults$'
said '^lint: clang-tidy, 1 files: 0 faults$'
said '^lint: no faults$'

# What is committed already: the products' files always, the tests' if they are new.
echo 'int badly_named_before() { return 1; }' >src/old.cpp
printf 'int Read(int* at) {\n  if (at == nullptr) return *at;\n  return 0;\n}\n' >src/null.cpp
echo 'int badly_named_test() { return 1; }' >tests/new_test.cpp
commit 'Faults that a compiler does not see'
echo 'int  Shifted() { return 1; }' >src/shifted.cpp
printf 'int Unused() {\n  int number = 1;\n  return 2;\n}\n' >src/unused.cpp
echo 'int badly_named() { return 1; }' >src/named.cpp
# shellcheck disable=SC2016  # the fault is in what is written
printf '#!/usr/bin/env bash\necho $1\n' >unquoted.sh
echo 'import os' >unused.py
lint 1 "$project"
said '^src/shifted.cpp:1:.* error: '
said '^unquoted.sh:2:.*SC2086'
said '^unused.py:1:.*F401'
said '^src/unused.cpp:2:.* error: unused variable'
said '^src/named.cpp:1:.* error: invalid case style'
for kind in layout scripts Python 'warnings of clang\+\+'; do
  said "^lint: $kind: 1 faults$"
done
said '^src/old.cpp:1:.* error: invalid case style'
said '^src/null.cpp:2:.* error: Dereference of null pointer'
said '^tests/new_test.cpp:1:.* error: invalid case style'
said '^lint: clang-tidy, products: [1-9][0-9]* faults$'
said '^lint: clang-tidy, 2 files: 1 faults$'
! grep -q 'warnings of g' "$work/said" || fail 'looked with g++, which only --all does'
lint 1 "$project" --all
said '^lint: warnings of g\+\+: 1 faults$'
