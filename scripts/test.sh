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
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=$type "${extra[@]}" >/dev/null
cmake --build "$dir"
cd "$dir"
ctest --output-on-failure -j2
