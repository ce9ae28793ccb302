#!/usr/bin/env bash
# The README's example requests, run as written against a running camera:
# every line of a sh block that names "$B" runs, in order, in one shell (so a
# line may set a variable the next one uses). A curl line passes when curl
# succeeds, the server answers below 400, and the body is none of the
# answers that say a request went wrong: the error envelope of an unknown
# query or of a body that is no JSON, a JSON "status" false, a remote-control
# error ("ER1:..."). A line whose own comment shows such an answer must
# answer it.
# Usage: tests/doc/readme_examples.sh PORT [README]
set -uo pipefail
[ $# -ge 1 ] || { echo "usage: $0 PORT [README]" >&2; exit 2; }
REPO=$(cd "$(dirname "$0")/../.." && pwd)
README=${2:-$REPO/README.md}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
head -c 300000 /dev/urandom >"$work/firmware.bin"

# The example lines, each with its line number.
awk '/^```sh$/ {on=1; next} /^```$/ {on=0} on && /\$B/ && !/^B=/ {print NR "\t" $0}' "$README" >"$work/lines"

cat >"$work/run.sh" <<'SCRIPT'
B=http://127.0.0.1:$PORT
passed=0 failed=0
curl() {
  local out
  out=$(command curl -sS --max-time 60 -w '\nHTTP %{http_code}' "$@" 2>&1)
  local status=$? code=${out##*HTTP }
  out=${out%$'\n'HTTP *}
  local why=
  if [ $status -ne 0 ]; then why="curl exit $status"
  elif [ "$code" -ge 400 ]; then why="HTTP $code"
  else
    local bad=
    if [[ $out == *'{"status":-1,"message":'* ]]; then bad='"status":-1'
    elif [[ $out =~ \"status\":[[:space:]]*false ]]; then bad='"status":false'
    elif [[ $out =~ ^\"?ER[0-9] ]]; then bad=ER
    fi
    local comment=${LINE#*\#}
    [ "$comment" = "$LINE" ] && comment=
    if [ -n "$bad" ] && [[ $comment != *"$bad"* ]]; then why="answered $bad"
    elif [ -z "$bad" ] && [[ $comment == *'"status":-1'* || $comment == *'"status":false'* ]]; then
      why="expected the answer its comment shows"
    fi
  fi
  if [ -n "$why" ]; then
    failed=$((failed + 1))
    printf 'FAIL README.md:%s: %s\n  %s\n  %s\n' "$LINENO_README" "$why" "$LINE" "${out:0:300}" >&2
  else
    passed=$((passed + 1))
  fi
  printf '%s\n' "$out"
}
SCRIPT
while IFS=$'\t' read -r n line; do
  printf 'LINENO_README=%q; LINE=%q\n%s\n' "$n" "$line" "$line" >>"$work/run.sh"
done <"$work/lines"
echo 'echo; echo "readme examples: $passed passed, $failed failed"; [ $failed -eq 0 ]' >>"$work/run.sh"

cd "$work" && PORT=$1 bash "$work/run.sh" >"$work/out" 2>"$work/err"
status=$?
cat "$work/err" >&2
tail -n 1 "$work/out"
exit $status
