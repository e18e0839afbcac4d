#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Derives the seed corpora of the two-part fuzz targets from the forge
fixtures (the other targets start from the fixture directories themselves).

make_seeds.py TESTDATA OUTDIR writes OUTDIR/<target>/<name> for crl_compare
and verify_image: a 2-byte little-endian length of the first part, the first
part, then the second part.
"""
import pathlib
import shutil
import struct
import sys

HEADER_REGION = 0x10000
BODY_LEN_OFFSET = 0x460


def two_parts(a, b):
    a = a[:0xFFFF]
    return struct.pack("<H", len(a)) + a + b


def trailer(img):
    """The image's trailer (signature, content and CRL blocks), or None."""
    if len(img) < BODY_LEN_OFFSET + 4:
        return None
    body_len = struct.unpack_from("<I", img, BODY_LEN_OFFSET)[0]
    start = HEADER_REGION + body_len + 32 - (body_len % 16)
    return img[start:] if start < len(img) else None


def main():
    src = pathlib.Path(sys.argv[1])
    out = pathlib.Path(sys.argv[2])
    if out.exists():
        shutil.rmtree(out)

    def put(target, name, data):
        (out / target).mkdir(parents=True, exist_ok=True)
        (out / target / name).write_bytes(data)

    crlfiles = sorted((src / "crlfiles").iterdir())
    images = sorted((src / "images").glob("*.img"))

    good = (src / "crlfiles" / "good.der").read_bytes()
    for a in crlfiles:
        put("crl_compare", a.name + "__good", two_parts(a.read_bytes(), good))
    put("crl_compare", "good__newer", two_parts(good, (src / "crlfiles" / "cmp_newer.der").read_bytes()))

    valid = trailer((src / "images" / "valid.img").read_bytes())
    for f in images:
        t = trailer(f.read_bytes())
        if t is not None:
            put("verify_image", f.name, two_parts(good, t))
    for f in crlfiles:
        put("verify_image", "valid__" + f.name, two_parts(f.read_bytes(), valid))

    (out / ".stamp").touch()


if __name__ == "__main__":
    main()
