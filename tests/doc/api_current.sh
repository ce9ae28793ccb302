#!/bin/sh
# The API description the pages read (src/www/api.json) and the reference
# (docs/API.md) are what the responder's tables say now: both are made again
# and compared with the committed copies.
# Usage: api_current.sh API_DESCRIBE REPO
set -eu
describe=${1:?usage: api_current.sh API_DESCRIBE REPO}
repo=${2:?usage: api_current.sh API_DESCRIBE REPO}
status=0
for pair in json:src/www/api.json markdown:docs/API.md; do
  form=${pair%%:*} file=${pair#*:}
  if ! "$describe" "$form" | diff -u "$repo/$file" - >&2; then
    echo "$file is not what the tables say: run  $describe $form > $file" >&2
    status=1
  fi
done
exit $status
