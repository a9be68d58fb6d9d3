#!/usr/bin/env bash
# check_help_examples.sh SOURCE BUILD FOLDER: runs the example that each verb's --help ends with, where
# examples/ and build/release/ are those of SOURCE and BUILD. Later ones use what earlier ones leave.
set -euo pipefail
source=$1 build=$2
. "$(dirname "$0")/../support/own_folder.sh"

own_folder "$3"
mkdir -p "$work/build/demo"
ln -s "$source/examples" "$work/examples"
ln -s "$build" "$work/build/release"
cd "$work"
verbs=(inspect prepare qualify calibrate launch trace convert judge timing history report fleet)
build/release/vorn --help=names | sort >known
printf '%s\n' "${verbs[@]}" | sort | diff known - || {
  echo "these are not the verbs that there are"
  exit 1
}
for verb in "${verbs[@]}"; do
  example=$(build/release/vorn "$verb" --help | sed -n '$s/^ *//p')
  status=0
  bash -c "$example" >"$verb.said" 2>&1 || status=$?
  case $verb-$status in
    *-0 | timing-10 | timing-11) ;; # the machine decides how times compare
    *)
      echo "$verb: '$example' ends with status $status: $(cat "$verb.said")"
      exit 1
      ;;
  esac
done
echo "the examples of ${#verbs[@]} verbs run"
