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
file(GLOB folders CONFIGURE_DEPENDS LIST_DIRECTORIES ON ${PROJECT_SOURCE_DIR}/rooms/*)
foreach(folder ${folders})
  get_filename_component(room ${folder} NAME)
  add_library(${room} OBJECT ${folder}/room.cpp)
  set_target_properties(${room} PROPERTIES UNITY_BUILD ${VORN_UNITY})
endforeach()
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
said '^lint: clang-tidy, 1 products: 0 faults$'
said '^lint: clang-tidy, 1 files: 0 faults$'
said '^lint: no faults$'

# What is committed already: if it is new.
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
said '^lint: clang-tidy, 1 products: [1-9][0-9]* faults$'
said '^lint: clang-tidy, 2 files: 1 faults$'
! grep -q 'warnings of g' "$work/said" || fail 'looked with g++, which only --all does'
lint 1 "$project" --all
said '^lint: warnings of g\+\+: 1 faults$'

# Rooms of the products, of which no more are looked at than there is time for; then those alone that
# have changed, be it by a header.
rm -r src/* tests/*_test.cpp un*
most=$(($(sed -nE 's/^readonly kTidyUnitedACore=([0-9]+) .*/\1/p' scripts/lint.sh) * $(nproc)))
for number in $(seq "$((most + 1))"); do
  mkdir -p "rooms/room$number"
  printf '#include "room.h"\n' >"rooms/room$number/room.cpp"
  printf 'int badly_named%s();\n' "$number" >"rooms/room$number/room.h"
done
echo 'int Clean() { return 1; }' >src/clean.cpp
echo 'int CleanTest() { return 1; }' >tests/clean_test.cpp
commit 'More than there is time for'
lint 1 "$project"
said "^lint: clang-tidy, $most products: [1-9][0-9]* faults$"
said '^lint: clang-tidy: left for --all: .*/Unity/unity_0_cxx.cxx$'
echo '// Changed.' >>rooms/room1/room.h
lint 1 "$project" --since HEAD
said '^rooms/room1/room.h:1:.* error: invalid case style'
said '^lint: clang-tidy, 1 products: 1 faults$'
! grep -q 'room2' "$work/said" || fail 'looked at what has not changed'
lint 1 "$project" --all
said "^lint: clang-tidy, $((most + 2)) products: $((most + 1)) faults$"
