# Helpers of the tool's test scripts: run the built kelvor (under the
# cross-compiling emulator when there is one) in a scratch directory.
set -euo pipefail
: "${KELVOR:?KELVOR names the built tool}"
RUNNER=${KELVOR_RUNNER:-}
WORK=$(mktemp -d "${TMPDIR:-/tmp}/kelvor-tool-test.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

k() { $RUNNER "$KELVOR" "$@"; }

fail() { echo "FAIL: $*" >&2; exit 1; }

# expect CODE PATTERN -- ARGS...: the exit status is CODE and standard error
# holds PATTERN (an extended regular expression) on a single line.
expect() {
  local want=$1 pattern=$2
  shift 3
  local rc=0
  k "$@" >out.txt 2>err.txt </dev/null || rc=$?
  [ "$rc" = "$want" ] || fail "kelvor $* exited $rc, not $want: $(cat err.txt)"
  [ -z "$pattern" ] || grep -Eq -- "$pattern" err.txt || fail "kelvor $*: no '$pattern' in: $(cat err.txt)"
  if [ "$want" != 0 ]; then
    [ "$(tr -d '\r' <err.txt | grep -c .)" -ge 1 ] || fail "kelvor $*: no message"
  fi
}

skip() { echo "SKIP: $*"; exit 77; }
