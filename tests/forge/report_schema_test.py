#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""forge inspect --json on every fixture image, with and without the
verification, against the field table of forge/README.md: every field of a
report is in the table with its type, and every field the table does not
mark "opt" is present wherever its parent is.
    report_schema_test.py FORGE README TESTDATA_DIR"""
import glob
import json
import re
import subprocess
import sys

forge, readme, data = sys.argv[1:4]
CERT_ARRAYS = ["signature.certificates[]", "signature.signers[].timeStampToken.certificates[]",
               "crlBlock.certificates[]"]
TYPES = {"object": dict, "array": list, "string": str, "integer": int, "boolean": bool, "null": type(None)}

schema = {}  # field path -> (allowed python types, optional)
text = open(readme).read()
table = text[text.index("| Field | Type |"):]
for line in table.split("\n")[2:]:
    if not line.startswith("|"):
        break
    cells = [c.strip() for c in line.strip("|").split("|")]
    names, types, opt = cells[0], cells[1], cells[2] == "opt"
    allowed = tuple(TYPES[t] for t in types.split(" or "))
    paths = re.findall(r"`([^`]+)`", names)
    if names.startswith("*certificate*"):
        paths = [p for f in paths for p in (c + f for c in CERT_ARRAYS)]
    elif "(and content, crl)" in names:
        paths = [p.replace("signature", block, 1) for p in paths for block in ("signature", "content", "crl")]
        paths = ["layout." + p if not p.startswith("layout.") else p for p in paths]
    for p in paths:
        for q in p.split(", "):
            schema[q.replace("]`", "]")] = (allowed, opt)

failures = []


def check(obj, path):
    if isinstance(obj, list):
        for item in obj:
            check(item, path + "[]")
        return
    if not isinstance(obj, dict):
        return
    for key, value in obj.items():
        field = f"{path}.{key}" if path else key
        if field not in schema:
            failures.append(f"{field}: not in the table")
            continue
        allowed, _ = schema[field]
        if isinstance(value, bool) and bool not in allowed or not isinstance(value, allowed):
            failures.append(f"{field}: {type(value).__name__}, the table says {allowed}")
        check(value, field)
    prefix = path + "." if path else ""
    for field, (_, opt) in schema.items():
        if not opt and field.startswith(prefix) and "." not in field[len(prefix):] and \
                field[len(prefix):] not in obj:
            failures.append(f"{field}: missing")


reports = 0
for image in sorted(glob.glob(f"{data}/images/*.img")):
    for extra in ([], ["--crl", f"{data}/crlfiles/good.der", "--root", f"{data}/pki/root.der"]):
        out = subprocess.run([forge, "inspect", "--json", image] + extra, capture_output=True, text=True).stdout
        check(json.loads(out), "")
        reports += 1
for f in sorted(set(failures)):
    print("FAIL", f)
print(f"report schema: {reports} reports, {len(schema)} documented fields, {len(set(failures))} failures")
sys.exit(1 if failures or reports < 20 else 0)
