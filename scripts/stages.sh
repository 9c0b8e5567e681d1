# Sourced by the test and CI scripts: `stage NAME COMMAND...` runs one stage,
# headed by its name and followed by how long it took; `stage_total` prints the
# time since the first stage began.
stages_started=${stages_started:-$SECONDS}

stage() {
  local name=$1 began=$SECONDS
  shift
  echo "== $name"
  local status=0
  "$@" || status=$?
  if [ "$status" -ne 0 ]; then
    echo "-- $name: failed (exit $status) after $((SECONDS - began)) s"
    return "$status"
  fi
  echo "-- $name: $((SECONDS - began)) s"
}

stage_total() {
  echo "-- total: $((SECONDS - stages_started)) s"
}
