# SPDX-License-Identifier: Apache-2.0
"""A small DER reader and writer for the forge tests' re-encodings."""


def parse(b, pos=0):
    """[tag, children or content, end] of the DER element at pos; lists, so a test can edit them."""
    tag, n = b[pos], b[pos + 1]
    pos += 2
    if n & 0x80:
        k = n & 0x7F
        n, pos = int.from_bytes(b[pos:pos + k], "big"), pos + k
    end = pos + n
    if not tag & 0x20:
        return [tag, b[pos:end], end]
    kids = []
    while pos < end:
        kids.append(parse(b, pos))
        pos = kids[-1][2]
    return [tag, kids, end]


def der(node):
    tag, body = node[0], node[1]
    content = b"".join(der(k) for k in body) if isinstance(body, list) else body
    n, size = len(content), (len(content).bit_length() + 7) // 8
    head = bytes([n]) if n < 0x80 else bytes([0x80 | size]) + n.to_bytes(size, "big")
    return bytes([tag]) + head + content
