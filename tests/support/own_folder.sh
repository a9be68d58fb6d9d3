# For checks that write. Sourced.

# own_folder PARENT: sets work to a new folder in PARENT that goes when the script ends. Two runs may
# test the same build at once.
own_folder() {
  mkdir -p "$1"
  work=$(mktemp -d "$1/XXXXXX")
  trap 'rm -rf "$work"' EXIT
}
