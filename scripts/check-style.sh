#!/usr/bin/env bash
# The house style, checked where a change makes it drift: every tracked C and
# C++ file as clang-format (.clang-format) would write it, and every shell
# script clean for shellcheck (.shellcheckrc). Prints what differs; exit 1
# when anything does.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 2
status=0
mapfile -t sources < <(git ls-files '*.cpp' '*.h' '*.c')
clang-format --dry-run -Werror "${sources[@]}" || status=1
mapfile -t scripts < <(git ls-files '*.sh' .ci/run)
shellcheck -x "${scripts[@]}" || status=1
[ $status -eq 0 ] && echo "style: ${#sources[@]} sources and ${#scripts[@]} scripts as the house style has them"
exit $status
