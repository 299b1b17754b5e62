# Running commands as the unprivileged user "nobody", for the test scripts that source this file.
#   can_run_as_nobody: whether this shell may change to nobody (it runs as root, with setpriv).
#   as_nobody [--groups=GROUPS] COMMAND...: COMMAND as nobody, in nobody's group and no other (or
#     also in GROUPS), with the environment an account starts with; the caller adds to it with env.
can_run_as_nobody() {
  [ "$(id -u)" = 0 ] && command -v setpriv >/dev/null 2>&1
}

as_nobody() {
  local groups=--clear-groups
  if [[ "${1:-}" == --groups=* ]]; then
    groups=$1
    shift
  fi
  setpriv --reuid=nobody --regid="$(id -gn nobody)" "$groups" --reset-env "$@"
}
