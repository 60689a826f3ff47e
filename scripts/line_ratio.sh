#!/usr/bin/env bash
# Lines of test code against lines of product code (C++ and scripts; data,
# generated tables and benchmarks excluded), as tracked by git.
set -euo pipefail
cd "$(dirname "$0")/.."
count() { git ls-files "$@" | xargs -r cat | wc -l; }
product_cpp=$(git ls-files text store content mail saving session cli app engine | grep -E '\.(cpp|h)$' | xargs -r cat | wc -l)
product_scripts=$(git ls-files scripts .ci | grep -E '\.(sh|py)$|^\.ci/' | xargs -r cat | wc -l)
test_cpp=$(git ls-files tests | grep -E '\.(cpp|h)$' | xargs -r cat | wc -l)
test_scripts=$(git ls-files tests | grep -E '\.(sh|py)$' | xargs -r cat | wc -l)
product=$((product_cpp + product_scripts))
tests=$((test_cpp + test_scripts))
echo "product: $product_cpp C++ + $product_scripts scripts = $product"
echo "tests:   $test_cpp C++ + $test_scripts scripts = $tests"
awk -v t="$tests" -v p="$product" 'BEGIN { printf "ratio:   %.2f\n", t / p }'
