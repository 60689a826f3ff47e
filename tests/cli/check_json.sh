#!/bin/sh
# marrow-cli inspect --json must be valid JSON with the documented keys.
set -eu
cli=$1 sample=$2
copy=$(mktemp --suffix=.ost)
trap 'rm -f "$copy"' EXIT
cp "$sample" "$copy"
"$cli" inspect "$copy" --json | python3 -c '
import json, sys
d = json.load(sys.stdin)
for k in ("isAnsi", "isLargePage", "cryptMethod", "votes", "folders"):
    assert k in d, k
assert set(d["votes"]) == {"none", "permute", "cyclic"}
for f in d["folders"]:
    assert set(f) >= {"nodeId", "dataBlock", "subnodeBlock", "parent", "messages", "name", "containerClass", "itemCount"}, f
assert len(d["folders"]) == 37 and sum(f["messages"] for f in d["folders"]) == 92
names = {f["name"] for f in d["folders"]}
assert {"IPM_SUBTREE", "Deleted Items", "Inbox", "Sent Items"} <= names, names
'
