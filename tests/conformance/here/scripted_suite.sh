# For the checks beside it: runs the suite on a scripted runtime. Sourced; the caller has set program,
# runtime, models (a folder) and unclaimed (a file).

# names_of FILE: the tests that FILE lists, separated by colons.
names_of() { grep '^[A-Z]' "$1" | paste -sd: -; }

# groups_of MODEL: the tests of one kind of model, as the positive half of a filter.
groups_of() {
  case $1 in
    detection) echo 'Detection.*' ;;
    recurrent) echo 'Recurrent.*' ;;
    *)
      printf '%s.*:' Batch Batches Datasets Description Device ElementTypes Execution Handles \
        HandlesInUse Loading Memory Process Silent
      ;;
  esac
}

# suite MODEL SCRIPT FILTER [ARGUMENT...]: what the suite says. The image may be any file: the script
# is the model.
suite() {
  local option=--model
  [ "$1" = feed_forward ] || option=--$1-model
  # shellcheck disable=SC2154  # set by the caller
  VORN_SCRIPT=$2 "$program" --runtime "$runtime" --config "$models/config.json" --no-skips \
    "$option" "$models/feed_forward.onnx" --gtest_brief=1 --gtest_filter="$3" "${@:4}"
}
