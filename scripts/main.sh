#!/usr/bin/env bash
# The main job: build, then run it on the bundled sample store.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build
./build/cli/marrow-cli tree samples/aspose_SampleOstFile.ost
# The conversion: every recovered folder as a folder of EML files under out/.
mkdir -p out
./build/cli/marrow-cli export samples/aspose_SampleOstFile.ost --to eml --out out
