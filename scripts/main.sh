#!/usr/bin/env bash
# The main job: build the command line, then run it on the bundled sample store.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMARROW_BUILD_TESTS=OFF \
  -DMARROW_BUILD_BENCH=OFF >/dev/null
cmake --build build-release --target marrow-cli
./build-release/cli/marrow-cli tree samples/aspose_SampleOstFile.ost
# The conversion: every recovered folder as a folder of EML files under out/.
mkdir -p out
./build-release/cli/marrow-cli export samples/aspose_SampleOstFile.ost --to eml --out out
