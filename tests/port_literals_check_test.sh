#!/usr/bin/env bash
# The port-literal check on a tiny tree: a quoted port name is found with its place, while the
# same word in a comment, inside a longer literal, in a raw string or exempted by the allow file
# is not.
set -euo pipefail
repo="$1"
tree="$(mktemp -d)"
trap 'rm -rf "$tree"' EXIT
mkdir -p "$tree/host/data" "$tree/source" "$tree/scripts"
cat > "$tree/host/data/port_bundles.json" <<'JSON'
{"net.kelvo.material.portbundle.corvane": {"name": "c", "ports": [{"name": "diffuse_color", "type": "Color"}]},
 "net.kelvo.nodespace.exchange.bundle.viewportmaterial": {"name": "v", "ports": [{"name": "transmissivity ", "type": "Float"}]}}
JSON
cat > "$tree/source/quiet.cpp" <<'CPP'
// "diffuse_color" in a comment
/* "diffuse_color" in a block comment */
const char* a = "diffuse_color_weight";
const char* b = R"("diffuse_color")";
const char c = '"';
const char* d = "transmissivity";
CPP
if ! out="$(bash "$repo/scripts/check-port-literals.sh" "$tree")"; then
  echo "a tree without port literals failed the check: $out"; exit 1
fi
cat > "$tree/source/loud.cpp" <<'CPP'
int x = 1'000;
const char* a = "diffuse_color";
const char* b = "say \"diffuse_color\"";
const char* t = "transmissivity ";
CPP
if out="$(bash "$repo/scripts/check-port-literals.sh" "$tree")"; then
  echo "two port literals passed the check: $out"; exit 1
fi
for place in 'source/loud.cpp:2: "diffuse_color"' 'source/loud.cpp:4: "transmissivity "'; do
  grep -qF "$place" <<<"$out" || { echo "not listed: $place in: $out"; exit 1; }
done
[ "$(grep -c '^source/' <<<"$out")" = 2 ] || { echo "wrong listing: $out"; exit 1; }
printf 'source/loud.cpp diffuse_color  # why\nsource/loud.cpp transmissivity\n' > "$tree/scripts/port-literals.allow"
if out="$(bash "$repo/scripts/check-port-literals.sh" "$tree")"; then
  echo "the allow file let a blank-ended port through: $out"; exit 1
fi
grep -qF 'source/loud.cpp:4: "transmissivity "' <<<"$out" || { echo "not listed: $out"; exit 1; }
echo ok
