#!/usr/bin/env bash
# The repeat-key forecast of the example trace as a page: the default settings side by side with
# examples/securitymonitor.json, written to build/forecast/forecast.html, and its picture at
# 1280x800 taken with headless Chromium (Debian's package, installed here when missing) into
# docs/forecast.png, which the README shows.
# Usage: scripts/forecast-page.sh
set -euo pipefail
cd "$(dirname "$0")/.."

if ! command -v chromium >/dev/null; then
  apt-get update
  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends chromium
fi

cmake --preset gcc >/dev/null
cmake --build --preset gcc --target kalvo-devhost kalvo.securitymonitor
bin=build/gcc/devhost/tool/kalvo-devhost

out=build/forecast
mkdir -p "$out"
"$bin" replay examples/trace.jsonl --compare examples/securitymonitor.json --keys 12 \
  --keys-html "$out/forecast.html" 2>"$out/comparison.txt"
"$bin" replay examples/trace.jsonl --config examples/securitymonitor.json --keys 50 \
  --keys-html "$out/forecast-example-config.html" --keys-json "$out/forecast-example-config.json" >/dev/null 2>&1
echo "pages: $out/forecast.html (compared), $out/forecast-example-config.html"

# A fresh profile each time, and nothing that reaches for the network.
profile=$(mktemp -d)
trap 'rm -rf "$profile"' EXIT
chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking \
  --disable-component-update --disable-sync --hide-scrollbars --user-data-dir="$profile" \
  --screenshot=docs/forecast.png --window-size=1280,800 "file://$PWD/$out/forecast.html" 2>"$out/chromium.log"
echo "picture: docs/forecast.png"
