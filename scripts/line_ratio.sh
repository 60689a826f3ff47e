#!/usr/bin/env bash
# Lines of test code against lines of product code (C++ and scripts; data,
# generated tables and benchmarks excluded), as git tracks them at REV
# (default: the work tree).
#   bash scripts/line_ratio.sh [REV]
set -euo pipefail
cd "$(dirname "$0")/.."
rev=${1:-}
files() { if [ -n "$rev" ]; then git ls-tree -r --name-only "$rev" -- "$@"; else git ls-files -- "$@"; fi; }
lines() {
  local n=0 f
  while read -r f; do
    if [ -n "$rev" ]; then n=$((n + $(git show "$rev:$f" | wc -l))); else n=$((n + $(wc -l <"$f"))); fi
  done
  echo "$n"
}
product_cpp=$(files text store content mail saving session cli app engine | grep -E '\.(cpp|h)$' | lines)
product_scripts=$(files scripts .ci | grep -E '\.(sh|py)$|^\.ci/' | lines)
test_cpp=$(files tests | grep -E '\.(cpp|h)$' | lines)
test_scripts=$(files tests | grep -E '\.(sh|py)$' | lines)
product=$((product_cpp + product_scripts))
tests=$((test_cpp + test_scripts))
echo "product: $product_cpp C++ + $product_scripts scripts = $product"
echo "tests:   $test_cpp C++ + $test_scripts scripts = $tests"
awk -v t="$tests" -v p="$product" 'BEGIN { printf "ratio:   %.2f\n", t / p }'
