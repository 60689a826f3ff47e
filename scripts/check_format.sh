#!/usr/bin/env bash
# Fails when a tracked C++ file is not formatted as .clang-format says.
# With --fix the files are rewritten instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cpp' '*.h')
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! clang-format --dry-run --Werror "${files[@]}" 2>"$log"; then
  grep -o '^[^:]*:[0-9]*:[0-9]*: error' "$log" | cut -d: -f1 | sort -u | sed 's/^/not formatted: /'
  echo "format: run bash scripts/check_format.sh --fix"
  exit 1
fi
echo "format: ${#files[@]} files checked"
