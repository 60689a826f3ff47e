#!/usr/bin/env bash
# Builds everything and runs every test. With --sanitize the build is
# instrumented with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

dir=build type=Debug extra=()
if [ "${1:-}" = "--sanitize" ]; then
  dir=build-asan
  extra=(-DMARROW_SANITIZE=ON)
fi
# Benchmarks are run by hand, so the test command does not build them.
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=$type -DMARROW_BUILD_BENCH=OFF "${extra[@]}" >/dev/null
cmake --build "$dir"
cd "$dir"
ctest --output-on-failure -j2
