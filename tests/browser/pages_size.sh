#!/bin/sh
# The camera's pages fit their budget: every file gzipped, added up, at most
# 48 KiB (the camera's flash is small). Prints the figure.
set -eu
dir=${1:?usage: pages_size.sh WWW_DIR}
total=0
for f in $(find "$dir" -type f | sort); do
  total=$((total + $(gzip -9c "$f" | wc -c)))
done
echo "pages: $total bytes gzipped (budget 49152)"
[ "$total" -le 49152 ]
